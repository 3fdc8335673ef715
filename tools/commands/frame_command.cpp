// Both ways work on standard input too, so that they stand between a script and the socket.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "json/json_parser.h"
#include "json/json_value.h"
#include "protocol/wire/message_frame.h"
#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/commands/frame_reader.h"
#include "tools/output/hex_dump.h"
#include "tools/process/input.h"

namespace valmere::tools {
namespace {

struct FrameOptions {
  std::string file = "-";
  bool check = false;
  bool hex = false;
};

constexpr const char* kAboutEncode = R"(
The text is framed as it is, but for a line feed at its end. A terminal gets a hex dump.)";

constexpr const char* kAboutDecode = R"(
Line feeds within a text, where they mean no more than a blank, are printed as one, so that there is
one text a line; with -0 texts are printed as they are.)";

// What is wrong with a message's text; nothing for one that the service would take.
std::optional<std::string> JudgeText(const std::string& text) {
  try {
    if (ParseJson(text).kind() == JsonKind::kObject) return std::nullopt;
    return "the text is no JSON object";
  } catch (const std::exception& error) {
    return std::string("the text cannot be parsed: ") + error.what();
  }
}

std::variant<std::string, Failure> ReadText(const std::string& path) {
  auto input = ReadInput(path, kMaximumMessageBytes);
  if (std::string* text = std::get_if<std::string>(&input)) {
    if (text->ends_with('\n')) text->pop_back();
    if (text->size() > kMaximumMessageBytes)
      return Failure{kExitRefused, "the text is longer than a frame may hold (" +
                                       std::to_string(kMaximumMessageBytes) + " bytes)"};
  }
  return input;
}

void Dump(std::string_view bytes, Output& out) {
  for (const std::string& line : HexDump(bytes))
    out.ShownLine(line);
}

std::optional<Failure> Encode(const FrameOptions& arguments, Output& out) {
  const auto text = ReadText(arguments.file);
  if (const Failure* failure = std::get_if<Failure>(&text)) return *failure;
  if (arguments.check) {
    if (const auto fault = JudgeText(std::get<std::string>(text)))
      return Failure{kExitRefused, *fault};
  }
  std::string frame;
  BeginFrame(frame);
  frame += std::get<std::string>(text);
  EndFrame(frame);
  if (arguments.hex || out.terminal())
    Dump(frame, out);
  else
    out.Raw(frame);
  return std::nullopt;
}

void PrintFrame(const FrameReader& frames, const FrameOptions& arguments, Output& out) {
  if (arguments.hex) Dump(frames.header(), out);
  std::string text = frames.text();
  if (!out.options().null_ends) std::replace(text.begin(), text.end(), '\n', ' ');
  out.Line(text);
  out.Flush();
}

std::optional<Failure> Decode(const FrameOptions& arguments, Output& out) {
  const auto input = OpenInput(arguments.file);
  if (const Failure* failure = std::get_if<Failure>(&input)) return *failure;
  std::FILE* const file = std::get<InputFile>(input).get();
  FrameReader frames(file);
  for (;;) {
    switch (frames.Next()) {
      case FrameReader::Outcome::kEnd:
        return std::nullopt;
      case FrameReader::Outcome::kBad:
        if (std::ferror(file) != 0 && errno == EINTR) return UnreadableInput(arguments.file);
        return Failure{kExitRefused, frames.error()};
      case FrameReader::Outcome::kFrame:
        break;
    }
    PrintFrame(frames, arguments, out);
    if (out.failed()) return std::nullopt;  // main tells
    if (!arguments.check) continue;
    if (const auto fault = JudgeText(frames.text()))
      return Failure{kExitRefused, "byte " + std::to_string(frames.offset()) + ": " + *fault};
  }
}

using FrameAction = std::optional<Failure> (*)(const FrameOptions&, Output&);

void AddAction(Command& frame, Invocation& invocation, const char* name, const char* about,
               const char* hex, const char* footer, FrameAction action) {
  const auto arguments = std::make_shared<FrameOptions>();
  Command command = frame.AddCommand(name, about);
  command.AddPositional("FILE", arguments->file, "What to read; - is standard input",
                        Command::Need::kOptional);
  command.AddFlag("--check", arguments->check, "Parse the text, and refuse what is no JSON object");
  command.AddFlag("--hex", arguments->hex, hex);
  command.SetFooter(footer);
  command.SetRun(invocation, [arguments, action](Output& out) { return action(*arguments, out); });
}

}  // namespace

void AddFrameCommand(CLI::App& app, Invocation& invocation) {
  Command frame(app, "frame", "Make frames, and take them apart");
  AddAction(frame, invocation, "encode", "Write the text as a frame",
            "Print a hex dump instead of the bytes", kAboutEncode, Encode);
  AddAction(frame, invocation, "decode", "Print the text of each frame, one a line",
            "Print a hex dump of each header before its text", kAboutDecode, Decode);
}

}  // namespace valmere::tools
