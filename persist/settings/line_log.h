// Reports of the line queue as messages in the log.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "persist/file/line_queue.h"
#include "persist/log/log_sink.h"

namespace valmere {

// Purpose: logs the reports of the line queue; what is lost at the end goes to standard error, too.
// Owner: the line queue and its line writers.
// Threads: any.
// Errors: std::bad_alloc.
class LineLog final : public LineReports {
 public:
  // So many lines are named in one message.
  static constexpr std::size_t kMostNamed = 16;

  explicit LineLog(std::shared_ptr<LogSink> log) : log_(std::move(log)) {}

  void Waits(platform::WidePathView path, RewriteResult cause) override;
  void WrittenAgain(platform::WidePathView path, std::size_t lines) override;
  void GivenUp(platform::WidePathView path, std::size_t lines, RewriteResult cause) override;
  void Lost() override;
  void NotSynced() override;
  void Synced() override;
  void LeftBehind(const std::vector<std::string>& lines) override;

 private:
  const std::shared_ptr<LogSink> log_;
};

}  // namespace valmere
