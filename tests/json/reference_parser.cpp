// Tokens are found by trying every rule on every length, values by a descent with one function for
// each left-hand side. Nothing here is shared with the code under test but the value type.
#include "tests/json/reference_parser.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace valmere::test {

namespace {

enum class Kind { kString, kPunctuation, kSkipped, kInteger, kFloat, kBoolean, kNull };

struct Token {
  Kind kind;
  std::string text;
};

bool Digit(char c) {
  return c >= '0' && c <= '9';
}

bool IsDoubleQuoted(std::string_view s) {
  if (s.size() < 2 || s.front() != '"' || s.back() != '"') return false;
  s = s.substr(1, s.size() - 2);
  while (!s.empty()) {
    std::size_t step = 1;
    if (s[0] == '"') return false;
    if (s[0] == '\\') {
      if (s.size() < 2) return false;
      step = 2;
      if (s[1] == 'u') {
        step = 6;
        if (s.size() < step) return false;
        for (std::size_t i = 2; i < step; ++i)
          if (std::isxdigit(static_cast<unsigned char>(s[i])) == 0) return false;
      } else if (std::string_view("\"\\/bfnrt").find(s[1]) == std::string_view::npos) {
        return false;
      }
    }
    s.remove_prefix(step);
  }
  return true;
}

bool IsSingleQuoted(std::string_view s) {
  return s.size() >= 2 && s[0] == '\'' && s.find('\'', 1) == s.size() - 1;
}

bool IsPunctuation(std::string_view s) {
  return s.size() == 1 && std::string_view("[]{},:").find(s[0]) != std::string_view::npos;
}

bool IsBlank(std::string_view s) {
  return s == "\n" || std::all_of(s.begin(), s.end(), [](char c) { return c == ' ' || c == '\t'; });
}

std::string_view WithoutSign(std::string_view s) {
  return !s.empty() && (s[0] == '+' || s[0] == '-') ? s.substr(1) : s;
}

std::string_view WithoutDigits(std::string_view s) {
  while (!s.empty() && Digit(s[0]))
    s.remove_prefix(1);
  return s;
}

bool IsInteger(std::string_view s) {
  s = WithoutSign(s);
  return !s.empty() && WithoutDigits(s).empty();
}

bool IsFloat(std::string_view s) {
  if (s.empty()) return false;
  s = WithoutDigits(WithoutSign(s));
  if (!s.empty() && s[0] == '.') s = WithoutDigits(s.substr(1));
  return s.empty() || ((s[0] == 'e' || s[0] == 'E') && IsInteger(s.substr(1)));
}

bool IsBoolean(std::string_view s) {
  return s == "true" || s == "false";
}
bool IsNull(std::string_view s) {
  return s == "null";
}
bool IsAnyByte(std::string_view s) {
  return s.size() == 1 && s != "\n";
}

struct Rule {
  bool (*matches)(std::string_view);
  Kind kind;
};

constexpr Rule kRules[] = {
    {IsDoubleQuoted, Kind::kString},     {IsSingleQuoted, Kind::kString},
    {IsPunctuation, Kind::kPunctuation}, {IsBlank, Kind::kSkipped},
    {IsInteger, Kind::kInteger},         {IsFloat, Kind::kFloat},
    {IsBoolean, Kind::kBoolean},         {IsNull, Kind::kNull},
    {IsAnyByte, Kind::kSkipped},
};

Token LongestMatch(std::string_view rest) {
  for (std::size_t size = rest.size(); size > 0; --size)
    for (const Rule& rule : kRules)
      if (rule.matches(rest.substr(0, size))) return {rule.kind, std::string(rest.substr(0, size))};
  std::abort();  // the last rule and the line feed take any byte
}

std::vector<Token> Tokens(std::string_view text) {
  std::vector<Token> tokens;
  while (!text.empty()) {
    Token token = LongestMatch(text);
    text.remove_prefix(token.text.size());
    if (token.kind != Kind::kSkipped) tokens.push_back(std::move(token));
  }
  return tokens;
}

void AppendUnit(unsigned long c, std::string& out) {
  const auto put = [&out](unsigned long byte) { out += static_cast<char>(byte); };
  if (c < 128) {
    put(c);
  } else if (c > 2047) {
    put(0xE0 | (c >> 12 & 15));
    put(0x80 | (c >> 6 & 63));
    put(0x80 | (c & 63));
  } else {
    put(0xC0 | (c >> 6 & 31));
    put(0x80 | (c & 63));
  }
}

unsigned long Unit(const std::string& digits) {
  try {
    return std::stoul(digits, nullptr, 16) & 0xFFFF;
  } catch (const std::invalid_argument&) {
    throw std::invalid_argument("invalid stoul argument");
  }
}

std::string Unescaped(const std::string& quoted) {
  const std::string s = quoted.substr(1, quoted.size() - 2);
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '\\') {
      out += s[i];
      continue;
    }
    if (++i == s.size()) break;
    switch (s[i]) {
      case '"':
      case '\\':
      case '/':
        out += s[i];
        break;
      case 'b':
        out += '\b';
        break;
      case 'f':
        out += '\f';
        break;
      case 'n':
        out += '\n';
        break;
      case 'r':
        out += '\r';
        break;
      case 't':
        out += '\t';
        break;
      case 'u':
        AppendUnit(Unit(s.substr(i + 1, 4)), out);
        i += 4;
        break;
      default:
        break;
    }
  }
  return out;
}

std::int64_t Limited(const std::string& digits) {
  const long long value = std::strtoll(digits.c_str(), nullptr, 10);
  return std::clamp<long long>(value, INT32_MIN, INT32_MAX);
}

struct SyntaxError {};

class Reader {
 public:
  explicit Reader(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

  JsonValue Start() {
    JsonValue value = Value();
    if (next_ != tokens_.size()) throw SyntaxError();
    return value;
  }

 private:
  const Token* Peek() const { return next_ < tokens_.size() ? &tokens_[next_] : nullptr; }

  bool Take(const char* punctuation) {
    const Token* token = Peek();
    if (token == nullptr || token->kind != Kind::kPunctuation || token->text != punctuation)
      return false;
    ++next_;
    return true;
  }

  void Need(const char* punctuation) {
    if (!Take(punctuation)) throw SyntaxError();
  }

  std::string String() {
    const Token* token = Peek();
    if (token == nullptr || token->kind != Kind::kString) throw SyntaxError();
    ++next_;
    return Unescaped(token->text);
  }

  JsonValue Value() {
    if (Take("{")) return Object();
    if (Take("[")) return Array();
    const Token* token = Peek();
    if (token == nullptr || token->kind == Kind::kPunctuation) throw SyntaxError();
    if (token->kind == Kind::kString) return JsonValue(String());
    ++next_;
    if (token->kind == Kind::kInteger) return JsonValue(Limited(token->text));
    if (token->kind == Kind::kFloat) return JsonValue(std::atof(token->text.c_str()));
    if (token->kind == Kind::kBoolean) return JsonValue(token->text == "true");
    return JsonValue();
  }

  void Member(JsonValue& object) {
    const std::string key = String();
    Need(":");
    JsonValue value = Value();
    if (object.Find(key) == nullptr) object[key] = std::move(value);
  }

  // A list may be empty before its first comma.
  JsonValue Object() {
    JsonValue object = JsonValue::Object();
    if (Take("}")) return object;
    if (Peek() == nullptr || Peek()->text != ",") Member(object);
    while (Take(","))
      Member(object);
    Need("}");
    return object;
  }

  JsonValue Array() {
    JsonValue array = JsonValue::Array();
    if (Take("]")) return array;
    if (Peek() == nullptr || Peek()->text != ",") array.Append(Value());
    while (Take(","))
      array.Append(Value());
    Need("]");
    return array;
  }

  std::vector<Token> tokens_;
  std::size_t next_ = 0;
};

}  // namespace

std::optional<JsonValue> ReferenceParse(const std::string& text) {
  try {
    return Reader(Tokens(text.c_str())).Start();
  } catch (const SyntaxError&) {
    return std::nullopt;
  }
}

}  // namespace valmere::test
