// What the tests of stream handling stand on: a log that keeps its lines, and a stream format that
// does as it is told.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "persist/log/log_sink.h"
#include "platform/kernel.h"
#include "protocol/stream/data_handler.h"

namespace valmere::test {

// What the service asks for its own threads.
inline constexpr int kTestPriority = 249;

class CollectingLog final : public LogSink {
 public:
  void Log(std::string_view message) override {
    const platform::ScopedLock hold(lock_);
    lines_.emplace_back(message);
  }
  std::vector<std::string> lines() const {
    const platform::ScopedLock hold(lock_);
    return lines_;
  }
  std::vector<std::string> TakeLines() {
    const platform::ScopedLock hold(lock_);
    return std::exchange(lines_, {});
  }

 private:
  mutable platform::Lock lock_;
  std::vector<std::string> lines_ GUARDED_BY(lock_);
};

// Scores what the stream's peeked bytes give, and makes handlers that run a function and return a
// number. The functions are set before the first stream comes.
class FakeFactory final : public DataHandlerFactory {
 public:
  using ScoreFunction = std::function<std::uint32_t(std::string_view peeked)>;
  using ServeFunction = std::function<void(const ServiceContext&, PeekableStream&)>;

  FakeFactory(ScoreFunction score, int result) : score_(std::move(score)), result_(result) {}

  void OnCreate(std::function<void()> create) { create_ = std::move(create); }
  void OnServe(ServeFunction serve) { serve_ = std::move(serve); }
  void CreateNothing() { creates_nothing_ = true; }

  std::uint32_t Score(const PeekableStream& stream) const override {
    ++scored_;
    return score_(stream.Peeked());
  }
  std::shared_ptr<DataHandler> Create(const std::shared_ptr<PeekableStream>& stream) override {
    ++created_;
    if (create_) create_();
    return creates_nothing_ ? nullptr : std::make_shared<Handler>(serve_, result_, stream);
  }

  int scored() const { return scored_; }
  int created() const { return created_; }

 private:
  class Handler final : public DataHandler {
   public:
    Handler(ServeFunction serve, int result, std::shared_ptr<PeekableStream> stream)
        : serve_(std::move(serve)), result_(result), stream_(std::move(stream)) {}
    int Serve(const ServiceContext& context) override {
      if (serve_) serve_(context, *stream_);
      return result_;
    }

   private:
    const ServeFunction serve_;
    const int result_;
    const std::shared_ptr<PeekableStream> stream_;
  };

  const ScoreFunction score_;
  const int result_;
  std::function<void()> create_;
  ServeFunction serve_;
  bool creates_nothing_ = false;
  mutable std::atomic<int> scored_{0};
  std::atomic<int> created_{0};
};

}  // namespace valmere::test
