// Values wait on one stack whatever container they belong to. When a container closes, its values
// are the last ones: they move into an array of exactly their number, so no value is ever copied
// and no container grows step by step. They may be millions, and so they move in pieces.
#include "json/json_builder.h"

#include <algorithm>
#include <iterator>

#include "json/json_unescape.h"

namespace valmere {

namespace {

// Room for a small request, so that it is parsed with one allocation for each stack.
constexpr std::size_t kInitialValues = 16;
constexpr std::size_t kInitialTexts = 8;

// Moves what is in `from` behind `first` to the end of `to`, which has room for it.
template <class T>
void MoveInPieces(std::vector<T>& from, std::size_t first, std::vector<T>& to,
                  const ParseStop& stop) {
  while (first < from.size()) {
    stop.Pause();
    const std::size_t end = std::min(from.size(), first + ParseStop::kValuesBetweenPauses);
    const auto begin = from.begin();
    to.insert(to.end(), std::make_move_iterator(begin + static_cast<std::ptrdiff_t>(first)),
              std::make_move_iterator(begin + static_cast<std::ptrdiff_t>(end)));
    first = end;
  }
}

template <class T>
void Grow(std::vector<T>& stack, const ParseStop& stop) {
  std::vector<T> larger;
  larger.reserve(2 * stack.capacity());
  MoveInPieces(stack, 0, larger, stop);
  stack.swap(larger);
}

}  // namespace

JsonBuilder::JsonBuilder(const ParseStop& stop) : stop_(stop) {
  values_.reserve(kInitialValues);
  texts_.reserve(kInitialTexts);
}

void JsonBuilder::GrowValues() {
  Grow(values_, stop_);
}

std::vector<JsonText>& JsonBuilder::NextText() {
  if (texts_.size() == texts_.capacity()) Grow(texts_, stop_);
  return texts_;
}

bool JsonBuilder::PushText(std::string_view token) {
  return Try([&] {
    const std::string_view content = token.substr(1, token.size() - 2);
    const bool plain = content.find('\\') == std::string_view::npos;
    NextText().push_back(plain ? JsonText(content) : JsonText(UnescapeJson(content, stop_)));
  });
}

bool JsonBuilder::PushString() {
  return Try([&] {
    NextValue().emplace_back(std::move(texts_.back()));
    texts_.pop_back();
  });
}

bool JsonBuilder::PushNull() {
  return Try([&] { NextValue().emplace_back(); });
}

bool JsonBuilder::CloseObject(Mark first) {
  return Try([&] {
    const std::size_t count = values_.size() - first;
    const std::size_t first_key = texts_.size() - count;
    std::vector<JsonMember> members;
    members.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
      if (i % ParseStop::kValuesBetweenPauses == 0) stop_.Pause();
      members.emplace_back(std::move(texts_[first_key + i]), std::move(values_[first + i]));
    }
    texts_.resize(first_key);
    values_.resize(first);
    NextValue().emplace_back(JsonMembers(std::move(members), stop_));
  });
}

bool JsonBuilder::CloseArray(Mark first) {
  return Try([&] {
    std::vector<JsonValue> elements;
    elements.reserve(values_.size() - first);
    MoveInPieces(values_, first, elements, stop_);
    values_.resize(first);
    NextValue().emplace_back(std::move(elements));
  });
}

// A parse that was stopped reports no error.
void JsonBuilder::RethrowFailure() {
  if (!failure_ || stop_.asked()) return;
  std::rethrow_exception(failure_);
}

}  // namespace valmere
