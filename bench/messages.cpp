#include "bench/messages.h"

namespace valmere::bench {
namespace {

std::string Entry(int property, const std::string& value) {
  const std::string name = "Measured Property " + std::to_string(property);
  return R"({"Component": "6A1D2E3F-0000-4000-8000-000000000001","ComponentString": "Print Head",)"
         R"("GUID": "6A1D2E3F-0000-4000-8000-000000000002:6A1D2E3F-0000-4000-8000-1000)" +
         ValueOf(property) + R"(","GroupString": "Measurements","NameString": ")" + name +
         R"(","Status": "Successful","Value": ")" + value + "\"}";
}

}  // namespace

std::string ValueOf(int number, std::size_t bytes) {
  const std::string digits = std::to_string(number);
  std::string value = std::string(8 - digits.size(), '0') + digits;
  value.resize(bytes, 'v');
  return value;
}

std::string PublicationFrame(int first, int end, std::size_t value_bytes) {
  std::string entries;
  for (int i = first; i < end; ++i)
    entries += (i == first ? "" : ",") + Entry(i, ValueOf(i, value_bytes));
  return FrameOf(R"({"PropertyGetResponses": [)" + entries + "]}");
}

std::string ChangeFrame(int number) {
  return FrameOf(R"({"PropertyGetResponses": [)" + Entry(0, ValueOf(number)) + "]}");
}

bool TellsChange(std::string_view text, int number) {
  return text.find(R"("Value": ")" + ValueOf(number)) != std::string_view::npos;
}

std::string_view GetText() {
  return R"({"PropertyGetRequests": [{"Component": "955CFDC2-8EA6-478E-A927-7C870022EA03",)"
         R"("GUID": "ADC1E631-2C12-4267-B128-95830EC9857D:)"
         R"(955CFDC2-8EA6-478E-A927-7C870022EA03"}]})";
}

}  // namespace valmere::bench
