#include "host/root/standing.h"

#include "host/root/root_check.h"
#include "host/system/report.h"
#include "host/system/service_manager.h"

namespace valmere::host {
namespace {

std::string Gone(const RootFolder& root) {
  return root.path() + ": no longer leads to the root that is served; settings will not be kept";
}

}  // namespace

Standing::Standing(const RootFolder& root, const std::string& socket)
    : root_(root), serving_("serving on " + socket), flaw_(WhySettingsAreLost(root)) {
  if (flaw_) Report(*flaw_);
}

void Standing::TellReady() const {
  NotifyReady(Status());
}

void Standing::TellRoot(bool in_place) {
  in_place_ = in_place;
  Report(in_place ? root_.path() + ": leads to the root that is served again" : Gone(root_));
  NotifyStatus(Status());
}

std::string Standing::Status() const {
  if (!in_place_) return serving_ + "; " + Gone(root_);
  return flaw_ ? serving_ + "; " + *flaw_ : serving_;
}

}  // namespace valmere::host
