// Values wait on one stack whatever container they belong to. When a container closes, its values
// are the last ones: they move into an array of exactly their number, so no value is ever copied
// and no container grows step by step.
#include "json/json_builder.h"

#include <iterator>

#include "json/json_unescape.h"

namespace valmere {

namespace {

// Room for a small request, so that it is parsed with one allocation for each stack.
constexpr std::size_t kInitialValues = 16;
constexpr std::size_t kInitialTexts = 8;

}  // namespace

JsonBuilder::JsonBuilder() {
  values_.reserve(kInitialValues);
  texts_.reserve(kInitialTexts);
}

bool JsonBuilder::PushText(std::string_view token) {
  return Try([&] { texts_.push_back(UnescapeJson(token.substr(1, token.size() - 2))); });
}

bool JsonBuilder::PushString() {
  return Try([&] {
    values_.emplace_back(std::move(texts_.back()));
    texts_.pop_back();
  });
}

bool JsonBuilder::PushNull() {
  return Try([&] { values_.emplace_back(); });
}

bool JsonBuilder::CloseObject(Mark first) {
  return Try([&] {
    const std::size_t count = values_.size() - first;
    const std::size_t first_key = texts_.size() - count;
    std::vector<JsonMember> members;
    members.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
      members.emplace_back(std::move(texts_[first_key + i]), std::move(values_[first + i]));
    texts_.resize(first_key);
    values_.resize(first);
    values_.emplace_back(JsonMembers(std::move(members)));
  });
}

bool JsonBuilder::CloseArray(Mark first) {
  return Try([&] {
    const auto begin = values_.begin() + static_cast<std::ptrdiff_t>(first);
    std::vector<JsonValue> elements(std::make_move_iterator(begin),
                                    std::make_move_iterator(values_.end()));
    values_.resize(first);
    values_.emplace_back(std::move(elements));
  });
}

void JsonBuilder::RethrowFailure() {
  if (failure_) std::rethrow_exception(failure_);
}

}  // namespace valmere
