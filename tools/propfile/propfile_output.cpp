#include "tools/propfile/propfile_output.h"

#include "tools/output/property_json.h"
#include "tools/output/table.h"

namespace valmere::tools {
namespace {

Json ToJson(const PropfileLine& line) {
  Json object = Json::object();
  object["line"] = line.number;
  if (line.fault.empty()) {
    AddText(object, "key", line.key);
    AddText(object, "names", line.names);
    AddText(object, "value", line.value);
  } else {
    AddText(object, "text", line.text);
    object["fault"] = line.fault;
  }
  return object;
}

void PrintTable(const std::vector<PropfileLine>& lines, Output& out) {
  Table table({"KEY", "NAMES", "VALUE"});
  for (const PropfileLine& line : lines)
    if (line.fault.empty())
      table.AddRow({line.key, line.names, line.value});
    else
      table.AddRow({"?", "?", line.text});
  table.Print(out);
}

}  // namespace

void PrintPropfileLines(const std::vector<PropfileLine>& lines, Output& out) {
  if (out.form() == OutputForm::kJson) {
    for (const PropfileLine& line : lines)
      out.Line(ToJson(line).dump());
    return;
  }
  if (out.terminal() && !out.options().null_ends) return PrintTable(lines, out);
  for (const PropfileLine& line : lines)
    out.Line(line.fault.empty() ? line.key + "\t" + line.names + "\t" + line.value : line.text);
}

}  // namespace valmere::tools
