// Parsing and writing of the largest message that clients ask for often, the reply with all
// properties, and of the smallest, one get request; each beside what three widely used libraries
// need for the same text. Every parse includes the destruction of its value, every write begins
// with an empty buffer.
#include <benchmark/benchmark.h>
#include <json/reader.h>
#include <json/writer.h>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "json/json_parser.h"
#include "json/json_value.h"
#include "json/json_writer.h"

namespace {

using valmere::JsonValue;

constexpr unsigned kProperties = 1000;

std::string Guid(unsigned number) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%08X-1C2D-4E5F-8A9B-%012X", number * 2654435U + 7,
                number);
  return text.data();
}

std::string ReplyText() {
  JsonValue entries = JsonValue::Array();
  for (unsigned i = 0; i < kProperties; ++i) {
    JsonValue entry = JsonValue::Object();
    entry["Component"] = JsonValue(Guid(i % 10));
    entry["ComponentString"] = JsonValue("Print Spooler");
    entry["GUID"] = JsonValue(Guid(i % 40) + ":" + Guid(i));
    entry["GroupString"] = JsonValue("General");
    entry["NameString"] = JsonValue("Printing Speed " + std::to_string(10000 + i));
    entry["Status"] = JsonValue("Successful");
    entry["Value"] = JsonValue("Value " + std::to_string(i));
    entries.Append(std::move(entry));
  }
  JsonValue reply = JsonValue::Object();
  reply["PropertyGetResponses"] = std::move(entries);
  std::string text;
  WriteJson(reply, text);
  return text;
}

std::string RequestText() {
  return R"({"PropertyGetRequests": [{"Component": ")" + Guid(3) + R"(","GUID": ")" + Guid(1) +
         ":" + Guid(2) + R"("}]})";
}

const std::string& Reply() {
  static const std::string text = ReplyText();
  return text;
}

const std::string& Request() {
  static const std::string text = RequestText();
  return text;
}

void Count(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

struct Valmere {
  using Value = JsonValue;
  static void Parse(const std::string& text, Value& value) { value = valmere::ParseJson(text); }
  static std::size_t Write(const Value& value) {
    std::string text;
    WriteJson(value, text);
    benchmark::DoNotOptimize(text.data());
    return text.size();
  }
};

struct Nlohmann {
  using Value = nlohmann::json;
  static void Parse(const std::string& text, Value& value) { value = Value::parse(text); }
  static std::size_t Write(const Value& value) {
    const std::string text = value.dump();
    benchmark::DoNotOptimize(text.data());
    return text.size();
  }
};

struct JsonCpp {
  using Value = Json::Value;
  static void Parse(const std::string& text, Value& value) {
    static const std::unique_ptr<Json::CharReader> reader(
        Json::CharReaderBuilder().newCharReader());
    reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
  }
  static std::size_t Write(const Value& value) {
    static const Json::StreamWriterBuilder builder = [] {
      Json::StreamWriterBuilder made;
      made["indentation"] = "";
      return made;
    }();
    const std::string text = Json::writeString(builder, value);
    benchmark::DoNotOptimize(text.data());
    return text.size();
  }
};

struct RapidJson {
  using Value = rapidjson::Document;
  static void Parse(const std::string& text, Value& value) {
    Value parsed;
    parsed.Parse(text.data(), text.size());
    value.Swap(parsed);
  }
  static std::size_t Write(const Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    benchmark::DoNotOptimize(buffer.GetString());
    return buffer.GetSize();
  }
};

template <class Library>
void Parse(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    typename Library::Value value;
    Library::Parse(text, value);
    benchmark::DoNotOptimize(value);
  }
  Count(state, text.size());
}

template <class Library>
void Write(benchmark::State& state, const std::string& text) {
  typename Library::Value value;
  Library::Parse(text, value);
  std::size_t size = 0;
  for (auto _ : state)
    size = Library::Write(value);
  Count(state, size);
}

template <class Library>
void ParseReply(benchmark::State& state) {
  Parse<Library>(state, Reply());
}

template <class Library>
void WriteReply(benchmark::State& state) {
  Write<Library>(state, Reply());
}

template <class Library>
void ParseRequest(benchmark::State& state) {
  Parse<Library>(state, Request());
}

template <class Library>
void WriteRequest(benchmark::State& state) {
  Write<Library>(state, Request());
}

BENCHMARK(ParseReply<Valmere>);
BENCHMARK(ParseReply<Nlohmann>);
BENCHMARK(ParseReply<JsonCpp>);
BENCHMARK(ParseReply<RapidJson>);
BENCHMARK(WriteReply<Valmere>);
BENCHMARK(WriteReply<Nlohmann>);
BENCHMARK(WriteReply<JsonCpp>);
BENCHMARK(WriteReply<RapidJson>);
BENCHMARK(ParseRequest<Valmere>);
BENCHMARK(ParseRequest<Nlohmann>);
BENCHMARK(ParseRequest<JsonCpp>);
BENCHMARK(ParseRequest<RapidJson>);
BENCHMARK(WriteRequest<Valmere>);
BENCHMARK(WriteRequest<Nlohmann>);
BENCHMARK(WriteRequest<JsonCpp>);
BENCHMARK(WriteRequest<RapidJson>);

}  // namespace
