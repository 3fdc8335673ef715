// An array has one line for each element, so that line tools can still be used on it.
#include "tools/output/property_output.h"

#include "tools/names/name_resolver.h"
#include "tools/output/property_format.h"
#include "tools/output/property_json.h"

namespace valmere::tools {
namespace {

using client::Property;

void PrintText(const Property& property, TextForm text, Output& out) {
  if (text == TextForm::kValue)
    out.Line(property.value);
  else
    out.ShownLine(out.Styled(TextStyle::kName, FullName(property)) + "=" +
                  out.Shown(property.value));
}

}  // namespace

void PrintProperty(const Property& property, TextForm text, Output& out) {
  switch (out.form()) {
    case OutputForm::kJson:
      out.Line(ToJson(property).dump());
      break;
    case OutputForm::kFormat:
      out.Line(Format(out.options().format, property));
      break;
    case OutputForm::kText:
      PrintText(property, text, out);
  }
}

void PrintProperties(const std::vector<const Property*>& properties, TextForm text, Output& out) {
  const bool json = out.form() == OutputForm::kJson;
  if (json) out.Line("[");
  for (std::size_t i = 0; i < properties.size(); ++i)
    if (json)
      out.Line(ToJson(*properties[i]).dump() + (i + 1 < properties.size() ? "," : ""));
    else
      PrintProperty(*properties[i], text, out);
  if (json) out.Line("]");
}

void PrintChange(const Property& property, Output& out) {
  if (out.form() == OutputForm::kText && property.status == client::kNoLongerAvailable)
    out.ShownLine(out.Styled(TextStyle::kName, FullName(property)) +
                  out.Styled(TextStyle::kWarning, " is gone"));
  else
    PrintProperty(property, TextForm::kAssignment, out);
}

}  // namespace valmere::tools
