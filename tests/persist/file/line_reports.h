#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "persist/file/line_queue.h"
#include "platform/kernel.h"
#include "platform/wide_path.h"

namespace valmere::test {

// Keeps what a line queue reports, as texts in their order.
class KeptReports : public LineReports {
 public:
  // Called with each report, before it is kept.
  explicit KeptReports(std::function<void()> see = [] {}) : see_(std::move(see)) {}

  void Waits(platform::WidePathView path, RewriteResult cause) override {
    Keep("waits " + Name(path) + ": " + std::string(Describe(cause)));
  }
  void WrittenAgain(platform::WidePathView path, std::size_t lines) override {
    Keep("again " + Name(path) + ": " + std::to_string(lines));
  }
  void GivenUp(platform::WidePathView path, std::size_t lines, RewriteResult cause) override {
    Keep("given up " + Name(path) + ": " + std::to_string(lines) + ", " +
         std::string(Describe(cause)));
  }
  void Lost() override { Keep("lost"); }
  void NotSynced() override { Keep("not synced"); }
  void Synced() override { Keep("synced"); }
  void LeftBehind(const std::vector<std::string>& lines) override {
    std::string text = "left behind:";
    for (const std::string& line : lines)
      text += " " + line;
    Keep(text);
  }

  std::vector<std::string> all() {
    const platform::ScopedLock hold(lock_);
    return all_;
  }

 private:
  static std::string Name(platform::WidePathView path) {
    return platform::NarrowPath(path.substr(path.find_last_of(u'/') + 1));
  }
  void Keep(std::string text) {
    see_();
    const platform::ScopedLock hold(lock_);
    all_.push_back(std::move(text));
  }

  const std::function<void()> see_;
  platform::Lock lock_;
  std::vector<std::string> all_ GUARDED_BY(lock_);
};

}  // namespace valmere::test
