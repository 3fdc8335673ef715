// The service reads these files only when it loads them, so each command looks at the whole file
// and puts a whole one in its place.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/output/property_json.h"
#include "tools/propfile/propfile_output.h"
#include "tools/propfile/propfile_storage.h"
#include "tools/propfile/propfile_text.h"

namespace valmere::tools {
namespace {

struct PropfileOptions {
  std::string file;
  std::string wanted;
  std::string value;
  bool force = false;
};

constexpr const char* kAboutSetInFile = R"(
NAME is the line's key (group GUID:property GUID), its names (group:name), group/name, or the name
alone. Of two lines with one key the later one is changed, which is the one that counts.)";

constexpr const char* kAboutSeal = R"(
The last two bytes are taken for the old CRC, also when an editor has added a line feed to them; where
a good line ends the file, there is none and one is added.)";

// "FILE:3: text", or "FILE: text" for a fault of the whole.
std::string Located(const std::string& path, const PropfileFault& fault) {
  const std::string line = fault.line == 0 ? "" : ":" + std::to_string(fault.line);
  return path + line + ": " + fault.text;
}

std::string AllFaults(const std::string& path, const std::vector<PropfileFault>& faults) {
  std::string text;
  for (const PropfileFault& fault : faults) {
    if (!text.empty()) text += '\n';
    text += Located(path, fault);
  }
  return text;
}

void Print(const PropfileText& file, Output& out) {
  PrintPropfileLines(file.lines, out);
  if (out.form() != OutputForm::kJson) return;
  Json object = Json::object();
  if (file.stored_crc) object["stored_crc"] = CrcText(*file.stored_crc);
  object["computed_crc"] = CrcText(file.computed_crc);
  object["sound"] = FaultsOf(file).empty();
  out.Line(object.dump());
}

std::optional<Failure> Show(const PropfileOptions& arguments, Output& out) {
  const auto bytes = ReadWholeFile(arguments.file);
  if (const Failure* failure = std::get_if<Failure>(&bytes)) return *failure;
  const PropfileText file = ReadPropfileText(std::get<std::string>(bytes));
  Print(file, out);
  out.Flush();  // messages about it come after it
  const std::vector<PropfileFault> faults = FaultsOf(file);
  if (!faults.empty()) return Failure{kExitRefused, AllFaults(arguments.file, faults)};
  Report(arguments.file + ": the CRC is good: " + CrcText(file.computed_crc));
  return std::nullopt;
}

std::optional<Failure> Check(const PropfileOptions& arguments, Output& out) {
  const auto bytes = ReadWholeFile(arguments.file);
  if (const Failure* failure = std::get_if<Failure>(&bytes)) return *failure;
  const PropfileText file = ReadPropfileText(std::get<std::string>(bytes));
  const std::vector<PropfileFault> faults = FaultsOf(file);
  for (const PropfileFault& fault : faults)
    out.Line(Located(arguments.file, fault));
  if (!faults.empty()) return Failure{kExitRefused, arguments.file + " is not sound"};
  out.Line(arguments.file + ": sound, " + std::to_string(file.size) + " bytes, " +
           std::to_string(file.lines.size()) + (file.lines.size() == 1 ? " line" : " lines") +
           ", CRC " + CrcText(file.computed_crc));
  return std::nullopt;
}

// The line that `wanted` means. The same key twice is one property, whose last line counts.
std::variant<const PropfileLine*, Failure> FindLine(const PropfileText& file,
                                                    const std::string& wanted) {
  const PropfileLine* found = nullptr;
  std::string candidates;
  bool several = false;
  for (const PropfileLine& line : file.lines) {
    if (!Means(wanted, line)) continue;
    several |= found != nullptr && found->key != line.key;
    candidates += "\n  " + line.key + "  (" + line.names + ")";
    found = &line;
  }
  if (several)
    return Failure{kExitUsage, "\"" + wanted + "\" is ambiguous; it could be" + candidates};
  if (found == nullptr) return Failure{kExitNoSuchProperty, "no property \"" + wanted + "\""};
  return found;
}

std::optional<Failure> Set(const PropfileOptions& arguments, Output&) {
  if (arguments.value.find('\n') != std::string::npos)
    return Failure{kExitBadValue, "a value in a property file cannot hold a line feed"};
  const auto bytes = ReadWholeFile(arguments.file);
  if (const Failure* failure = std::get_if<Failure>(&bytes)) return *failure;
  const PropfileText file = ReadPropfileText(std::get<std::string>(bytes));
  const std::vector<PropfileFault> faults = FaultsOf(file);
  if (!faults.empty() && !arguments.force)
    return Failure{kExitRefused, AllFaults(arguments.file, faults) + "\n--force sets it anyway"};
  const auto line = FindLine(file, arguments.wanted);
  if (const Failure* failure = std::get_if<Failure>(&line)) return *failure;
  const PropfileLine& target = *std::get<const PropfileLine*>(line);
  return ReplaceFile(arguments.file, Sealed(WithValue(file, target, arguments.value)));
}

std::optional<Failure> Seal(const PropfileOptions& arguments, Output&) {
  const auto bytes = ReadWholeFile(arguments.file);
  if (const Failure* failure = std::get_if<Failure>(&bytes)) return *failure;
  const std::string& old = std::get<std::string>(bytes);
  const std::string sealed = Sealed(std::string(BodyOfEdited(old)));
  const std::vector<PropfileFault> faults = FaultsOf(ReadPropfileText(sealed));
  if (!faults.empty() && !arguments.force)
    return Failure{kExitRefused, AllFaults(arguments.file, faults) + "\n--force seals it as it is"};
  if (sealed == old) return std::nullopt;
  return ReplaceFile(arguments.file, sealed);
}

using PropfileAction = std::optional<Failure> (*)(const PropfileOptions&, Output&);

Command AddAction(Command& propfile, Invocation& invocation,
                  const std::shared_ptr<PropfileOptions>& arguments, const char* name,
                  const char* about, PropfileAction action) {
  Command command = propfile.AddCommand(name, about);
  command.AddPositional("FILE", arguments->file, "The property file", Command::Need::kRequired);
  command.SetRun(invocation, [arguments, action](Output& out) { return action(*arguments, out); });
  return command;
}

}  // namespace

void AddPropfileCommand(CLI::App& app, Invocation& invocation) {
  using enum Command::Need;
  Command propfile(app, "propfile", "Look into property files, and mend them");
  const auto arguments = std::make_shared<PropfileOptions>();
  AddAction(propfile, invocation, arguments, "show",
            "Print key, names and value of each line, and whether the CRC is good", Show);
  AddAction(propfile, invocation, arguments, "check",
            "Say what is wrong with a file; exit status 1 if anything is", Check);
  Command set =
      AddAction(propfile, invocation, arguments, "set", "Replace the value of a line", Set);
  set.AddPositional("KEY-OR-NAME", arguments->wanted, "The line", kRequired);
  set.AddPositional("VALUE", arguments->value, "Its new value", kRequired);
  set.AddFlag("--force", arguments->force, "Even if the file is not sound; it gets a good CRC");
  set.SetFooter(kAboutSetInFile);
  Command seal = AddAction(propfile, invocation, arguments, "seal",
                           "Give a file that was edited the right CRC", Seal);
  seal.AddFlag("--force", arguments->force, "Even if lines are malformed or there are none");
  seal.SetFooter(kAboutSeal);
  AddRescueCommand(propfile, invocation);
}

}  // namespace valmere::tools
