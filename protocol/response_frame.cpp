// Entries as text. Keys stand in ascending byte order, as the JSON writer puts them.
#include "protocol/response_frame.h"

#include "json/json_escape.h"
#include "protocol/message_frame.h"

namespace valmere {
namespace {

constexpr std::string_view kTextStart = "{\"PropertyGetResponses\": [";
constexpr std::string_view kTextEnd = "]}";

}  // namespace

void AppendResponseEntry(const PropertyResponseRecord& record, std::string& out) {
  out.append("{\"Component\": \"");
  AppendEscaped(record.component, out);
  out.append("\",\"ComponentString\": \"");
  AppendEscaped(record.component_name, out);
  out.append("\",\"GUID\": \"");
  AppendEscaped(record.group_guid, out);
  out.push_back(':');
  AppendEscaped(record.guid, out);
  out.append("\",\"GroupString\": \"");
  AppendEscaped(record.group_name, out);
  out.append("\",\"NameString\": \"");
  AppendEscaped(record.name, out);
  out.append("\",\"Status\": \"");
  AppendEscaped(record.status, out);
  out.append("\",\"Value\": \"");
  AppendEscaped(record.value, out);
  out.append("\"}");
}

ResponseFrame::ResponseFrame(std::string& buffer) : buffer_(buffer) {
  buffer_.clear();
  BeginFrame(buffer_);
  buffer_.append(kTextStart);
}

// An entry with names of twenty characters has some 330 bytes.
void ResponseFrame::Reserve(std::size_t entries) {
  constexpr std::size_t kOrdinaryEntryBytes = 352;
  buffer_.reserve(buffer_.size() + entries * kOrdinaryEntryBytes);
}

void ResponseFrame::Separate() {
  if (!empty_) buffer_.push_back(',');
  empty_ = false;
}

void ResponseFrame::Append(const PropertyResponseRecord& record) {
  Separate();
  AppendResponseEntry(record, buffer_);
}

void ResponseFrame::AppendText(std::string_view entries) {
  Separate();
  buffer_.append(entries);
}

void ResponseFrame::Finish() {
  buffer_.append(kTextEnd);
  EndFrame(buffer_);
}

}  // namespace valmere
