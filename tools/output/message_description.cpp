// Members are described in the order in which the service handles them, not in that of the text.
#include "tools/output/message_description.h"

#include <cstdio>
#include <exception>

#include "client/property.h"
#include "json/json_parser.h"
#include "json/json_value.h"
#include "protocol/wire/message_keys.h"

namespace valmere::tools {
namespace {

std::string TextOf(const JsonValue& entry, std::string_view key) {
  const JsonValue* member = entry.Find(key);
  return member != nullptr ? std::string(member->text()) : std::string();
}

std::string DescribeAddress(const JsonValue& entry) {
  return TextOf(entry, keys::kComponent) + "/" + TextOf(entry, keys::kGuid);
}

std::string DescribeSetting(const JsonValue& entry) {
  return DescribeAddress(entry) + "=" + TextOf(entry, keys::kValue);
}

std::string DescribeProperty(const JsonValue& entry) {
  std::string text = TextOf(entry, keys::kComponentString) + "/" +
                     TextOf(entry, keys::kGroupString) + "/" + TextOf(entry, keys::kNameString) +
                     "=" + TextOf(entry, keys::kValue);
  const std::string status = TextOf(entry, keys::kStatus);
  if (status != client::kSuccessful) text += " (" + status + ")";
  return text;
}

using DescribeEntry = std::string (*)(const JsonValue&);

void DescribeEntries(const JsonValue& message, std::string_view key, const char* verb,
                     DescribeEntry describe, std::vector<std::string>& lines) {
  const JsonValue* entries = message.Find(key);
  if (entries == nullptr) return;
  for (const JsonValue& entry : entries->elements())
    lines.push_back(verb + describe(entry));
}

void DescribeFlag(const JsonValue& message, std::string_view key, const char* text,
                  std::vector<std::string>& lines) {
  if (message.Find(key) != nullptr) lines.emplace_back(text);
}

std::vector<std::string> DescribeMembers(const JsonValue& message) {
  std::vector<std::string> lines;
  DescribeEntries(message, keys::kSetRequests, "set ", DescribeSetting, lines);
  DescribeFlag(message, keys::kGetAll, "get everything", lines);
  DescribeEntries(message, keys::kGetRequests, "get ", DescribeAddress, lines);
  DescribeFlag(message, keys::kSubscribeAll, "subscribe to everything", lines);
  DescribeEntries(message, keys::kSubscribeRequests, "subscribe to ", DescribeAddress, lines);
  DescribeEntries(message, keys::kGetResponses, "property ", DescribeProperty, lines);
  DescribeFlag(message, keys::kDisconnect, "disconnect", lines);
  return lines;
}

}  // namespace

std::vector<std::string> DescribeMessage(std::string_view text) {
  try {
    const JsonValue message = ParseJson(text);
    if (message.kind() == JsonKind::kObject) return DescribeMembers(message);
  } catch (const std::exception&) {
    // It is shown as it is.
  }
  return {std::string(text)};
}

}  // namespace valmere::tools
