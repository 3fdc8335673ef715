// What can be read goes to standard output; standard error lists what was left out.
#include <memory>
#include <string>
#include <variant>

#include "persist/file/file_stream.h"
#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/output/property_json.h"
#include "tools/propfile/propfile_output.h"
#include "tools/propfile/propfile_rescue.h"
#include "tools/propfile/propfile_storage.h"

namespace valmere::tools {
namespace {

// The service takes no file above 16 MiB; a foreign head may lie before what is wanted.
constexpr std::size_t kMostBytes = std::size_t{64} << 20;

constexpr const char* kAboutRescue = R"(
What is left out is told on standard error: lines without a key or a "=", those whose key
or names are no text or whose value holds NULs, and a last line without its line feed, which may
have been cut off. Of two lines with one key both are kept; the later one counts. Only the first 64 MiB
of FILE are looked at, and no more than 250000 lines kept. Exit status 1 when nothing could be read.

With --output the good lines go into a file with the right CRC, which may be FILE itself with
--force.)";

struct RescueOptions {
  std::string file;
  std::optional<std::string> output;
  bool force = false;
};

std::string Count(std::size_t count, const char* thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string Range(std::size_t first, std::size_t last) {
  return first == last ? std::to_string(first) : std::to_string(first) + "-" + std::to_string(last);
}

// "FILE:3-9 (bytes 120 to 409): left out: it is no text: "..."".
std::string LeftOutText(const std::string& path, const LeftOut& piece) {
  const std::string bytes = piece.begin == piece.end ? "no byte"
                                                     : "bytes " + std::to_string(piece.begin + 1) +
                                                           " to " + std::to_string(piece.end);
  return path + ":" + Range(piece.first_line, piece.last_line) + " (" + bytes +
         "): left out: " + piece.why + ": \"" + piece.beginning + "\"";
}

std::string AboutCrc(const Rescue& rescue) {
  if (!rescue.stored_crc) return "the CRC is missing";
  const std::string stored = CrcText(*rescue.stored_crc);
  if (rescue.crc_is_good()) return "the CRC is good: " + stored;
  return "the CRC is wrong: " + stored + " is stored, " + CrcText(rescue.computed_crc) +
         " computed";
}

void Tell(const std::string& path, const Rescue& rescue) {
  for (const LeftOut& piece : rescue.left_out)
    Report(LeftOutText(path, piece));
  if (rescue.unlisted > 0)
    Report(path + ": left out: " + Count(rescue.unlisted, "more piece") + " that are not listed");
  Report(path + ": " + AboutCrc(rescue));
  Report(path + ": " + std::to_string(rescue.lines.size()) + " of " +
         Count(rescue.line_count, "line"));
}

void Print(const Rescue& rescue, Output& out) {
  PrintPropfileLines(rescue.lines, out);
  if (out.form() != OutputForm::kJson) return;
  Json object = Json::object();
  if (rescue.stored_crc) object["stored_crc"] = CrcText(*rescue.stored_crc);
  object["computed_crc"] = CrcText(rescue.computed_crc);
  object["rescued"] = rescue.lines.size();
  object["lines"] = rescue.line_count;
  out.Line(object.dump());
}

std::optional<Failure> Write(const RescueOptions& options, const Rescue& rescue) {
  const std::string sound = SoundFile(rescue);
  if (sound.size() > FileStream::kLargestWhole)
    return Failure{kExitRefused, *options.output + ": not written: the lines have " +
                                     std::to_string(sound.size()) +
                                     " bytes, and the service takes no file above 16 MiB"};
  if (options.force && IsThere(*options.output)) return ReplaceFile(*options.output, sound);
  return CreateFile(*options.output, options.file, sound);
}

// Before anything is read and printed, so that a slip of the hand shows at once.
std::optional<Failure> CheckOutput(const RescueOptions& options) {
  if (!options.output || options.force || !IsThere(*options.output)) return std::nullopt;
  return Failure{kExitRefused, *options.output + " is there already; --force replaces it"};
}

std::optional<Failure> Run(const RescueOptions& options, Output& out) {
  if (auto failure = CheckOutput(options)) return failure;
  const auto read = ReadWholeFile(options.file, kMostBytes);
  if (const Failure* failure = std::get_if<Failure>(&read)) return *failure;
  const std::string& bytes = std::get<std::string>(read);
  const Rescue rescue = RescueLines(bytes);
  Print(rescue, out);
  out.Flush();  // messages about it come after it
  if (bytes.size() == kMostBytes)
    Report(options.file + ": left out: what lies behind the first 64 MiB, if anything does");
  Tell(options.file, rescue);
  if (rescue.lines.empty()) return Failure{kExitRefused, options.file + ": nothing could be read"};
  return options.output ? Write(options, rescue) : std::nullopt;
}

}  // namespace

void AddRescueCommand(Command& propfile, Invocation& invocation) {
  const auto options = std::make_shared<RescueOptions>();
  Command command =
      propfile.AddCommand("rescue", "Print what can be read of a damaged file, and mend it");
  command.AddPositional("FILE", options->file, "The property file", Command::Need::kRequired);
  command.AddText("--output", "PATH", options->output, "Write a sound file of the good lines");
  command.AddFlag("--force", options->force, "Replace a file that is there already");
  command.SetFooter(kAboutRescue);
  command.SetRun(invocation, [options](Output& out) { return Run(*options, out); });
}

}  // namespace valmere::tools
