// Both texts name a flaw of the root for as long as it lasts.
#include "host/root/service_status.h"

#include "host/root/root_check.h"
#include "host/system/report.h"
#include "host/system/service_manager.h"

namespace valmere::host {
namespace {

std::string RootGoneText(const RootFolder& root) {
  return root.path() + ": no longer leads to the root that is served; settings will not be kept";
}

}  // namespace

ServiceStatus::ServiceStatus(const RootFolder& root, const std::string& socket)
    : root_(root), serving_("serving on " + socket), flaw_(WhySettingsAreLost(root)) {
  if (flaw_) Report(*flaw_);
}

void ServiceStatus::ReportReady() const {
  NotifyReady(Text());
}

void ServiceStatus::ReportRoot(bool in_place) {
  in_place_ = in_place;
  Report(in_place ? root_.path() + ": leads to the root that is served again"
                  : RootGoneText(root_));
  NotifyStatus(Text());
}

std::string ServiceStatus::Text() const {
  if (!in_place_) return serving_ + "; " + RootGoneText(root_);
  return flaw_ ? serving_ + "; " + *flaw_ : serving_;
}

}  // namespace valmere::host
