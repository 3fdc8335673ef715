// Subscribes to everything and shows what goes over its own connection, both ways.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <utility>

#include "client/observed_transport.h"
#include "protocol/wire/message_frame.h"
#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/output/hex_dump.h"
#include "tools/output/message_description.h"
#include "tools/output/property_json.h"
#include "tools/service/service_clients.h"

namespace valmere::tools {
namespace {

using client::Deadline;
using client::Direction;

struct MonitorOptions {
  bool hex = false;
  std::size_t count = 0;  // 0 for no end
};

// The time of day with microseconds; in JSON with the date too.
std::string Now(const char* format) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now);
  const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(now - seconds);
  const std::time_t time = seconds.count();
  std::tm local{};
  localtime_r(&time, &local);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof(text), format, &local);
  std::snprintf(text + length, sizeof(text) - length, ".%06lld",
                static_cast<long long>(rest.count()));
  return text;
}

std::string FrameOf(std::string_view text) {
  std::string frame;
  BeginFrame(frame);
  frame += text;
  EndFrame(frame);
  return frame;
}

class Monitor {
 public:
  Monitor(const MonitorOptions& options, Output& out) : options_(options), out_(out) {}

  std::optional<Failure> Run(const GlobalOptions& global) {
    ServiceClients clients(global.socket);
    const Deadline deadline = Deadline::After(global.timeout);
    const auto client = clients.Open(deadline, [&](auto transport) {
      return client::Observe(std::move(transport),
                             [this](Direction direction, std::string_view text) {
                               if (!done()) Show(direction, text);
                             });
    });
    if (!client) return FailureOf(client.error());
    if (const auto subscribed = (*client)->SubscribeAll(deadline); !subscribed)
      return FailureOf(subscribed.error());
    while (!done()) {
      const auto changes = (*client)->ReceiveChanges(Deadline::Never());
      if (changes) continue;
      if (changes.error().kind == client::ErrorKind::kInterrupted) break;
      return FailureOf(changes.error());
    }
    return std::nullopt;
  }

 private:
  bool done() const { return out_.failed() || (options_.count > 0 && shown_ >= options_.count); }

  void Show(Direction direction, std::string_view text) {
    const char* const verb = direction == Direction::kSent ? "sent" : "received";
    if (out_.form() == OutputForm::kJson)
      ShowJson(verb, text);
    else
      ShowText(verb, text);
    out_.Flush();
    ++shown_;
  }

  void ShowText(const char* verb, std::string_view text) {
    out_.ShownLine(out_.Styled(TextStyle::kFaint, Now("%H:%M:%S")) + " " +
                   out_.Styled(TextStyle::kTitle, verb) + " " +
                   std::to_string(kFrameHeaderBytes + text.size()) + " bytes");
    for (const std::string& line : DescribeMessage(text))
      out_.Line("  " + line);
    if (!options_.hex) return;
    for (const std::string& line : HexDump(FrameOf(text)))
      out_.ShownLine(out_.Styled(TextStyle::kFaint, "  " + line));
  }

  void ShowJson(const char* verb, std::string_view text) {
    Json object;
    object["time"] = Now("%Y-%m-%dT%H:%M:%S");
    object["direction"] = verb;
    object["bytes"] = kFrameHeaderBytes + text.size();
    Json message = Json::parse(text, nullptr, false);
    if (message.is_object())
      object["message"] = std::move(message);
    else
      AddText(object, "text", text);
    if (options_.hex) object["hex"] = Hex(FrameOf(text));
    out_.Line(object.dump());
  }

  static std::string Hex(std::string_view bytes) {
    std::string hex;
    for (const char byte : bytes) {
      hex += "0123456789ABCDEF"[static_cast<unsigned char>(byte) >> 4];
      hex += "0123456789ABCDEF"[static_cast<unsigned char>(byte) & 0xf];
    }
    return hex;
  }

  const MonitorOptions& options_;
  Output& out_;
  std::size_t shown_ = 0;
};

}  // namespace

void AddMonitorCommand(CLI::App& app, Invocation& invocation) {
  const auto options = std::make_shared<MonitorOptions>();
  Command monitor(app, "monitor", "Show the messages of a subscribed connection");
  monitor.AddFlag("--hex", options->hex, "Show the frames' bytes too");
  monitor.AddCount(options->count, "End after so many messages");
  monitor.SetRun(invocation, [options, &invocation](Output& out) {
    return Monitor(*options, out).Run(invocation.global);
  });
}

}  // namespace valmere::tools
