// A rewrite of the file seals any body that it finds, and blocks that never reached the disk read
// as NULs: so each line is judged by itself, whether or not the CRC is good. Megabytes of rubbish
// may be full of line feeds; nothing is allocated for a line that is no good.
#include "tools/propfile/propfile_rescue.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <utility>

#include "persist/file/crc16.h"
#include "persist/file/property_file.h"
#include "tools/output/output.h"
#include "tools/output/text.h"

namespace valmere::tools {
namespace {

constexpr std::size_t kShownBytes = 48;
constexpr std::size_t kGuidLength = 36;
constexpr std::size_t kOwnKeyLength = 2 * kGuidLength + 1;

bool HasControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f;
  });
}

// Why a line is no good; null when it is.
const char* WhyBad(std::string_view line) {
  if (const char* fault = FaultIn(line)) return HasControl(line) ? "it is no text" : fault;
  const std::size_t equals = line.find('=', line.find('|'));
  const std::string_view left_side = line.substr(0, equals);
  if (HasControl(left_side) || !IsUtf8(left_side)) return "its key or names are no text";
  if (line.find('\0', equals) != std::string_view::npos) return "its value holds NULs";
  return nullptr;
}

bool IsGuid(std::string_view text) {
  for (std::size_t i = 0; i < kGuidLength; ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    const auto byte = static_cast<unsigned char>(text[i]);
    const bool digit = std::isdigit(byte) != 0 || (byte >= 'A' && byte <= 'F');
    if (dash ? byte != '-' : !digit) return false;
  }
  return true;
}

bool IsOwnKey(std::string_view text) {
  return text[kGuidLength] == ':' && IsGuid(text) && IsGuid(text.substr(kGuidLength + 1));
}

// Where the last good line of the service's own begins within one that is none; its end when
// nowhere. What is wrong with the rest behind one place is mostly wrong behind those before it too,
// so a few tries do.
std::size_t FindOwnLine(std::string_view line) {
  int tries = 8;
  for (std::size_t bar = line.rfind('|'); bar != std::string_view::npos && bar >= kOwnKeyLength;
       bar = line.rfind('|', bar - 1)) {
    const std::size_t start = bar - kOwnKeyLength;
    if (!IsOwnKey(line.substr(start))) continue;
    if (WhyBad(line.substr(start)) == nullptr) return start;
    if (--tries == 0) break;
  }
  return line.size();
}

// The beginning of a text that may be anything, for a terminal.
std::string Beginning(std::string_view text) {
  const std::string_view cut = text.substr(0, kShownBytes);
  std::string shown;
  for (const char byte : cut) {
    const auto number = static_cast<unsigned char>(byte);
    if (number >= 0x80 && !IsUtf8(cut)) {
      shown += "\\x";
      shown += "0123456789ABCDEF"[number >> 4];
      shown += "0123456789ABCDEF"[number & 0xf];
    } else {
      shown += byte;
    }
  }
  return EscapeControls(shown) + (cut.size() < text.size() ? "..." : "");
}

// Behind the last good line; 0 when there is none.
std::size_t EndOfGood(std::string_view bytes) {
  std::size_t good_end = 0;
  std::size_t start = 0;
  for (std::size_t end = bytes.find('\n'); end != std::string_view::npos;
       end = bytes.find('\n', start)) {
    if (WhyBad(bytes.substr(start, end - start)) == nullptr) good_end = end + 1;
    start = end + 1;
  }
  return good_end;
}

std::uint16_t CrcAt(std::string_view trailer) {
  return static_cast<std::uint16_t>(static_cast<unsigned char>(trailer[0]) |
                                    static_cast<unsigned char>(trailer[1]) << 8);
}

// The bytes of the trailer, or of what is left of it. It may hold line feeds itself.
std::size_t TrailerIn(std::string_view bytes) {
  if (bytes.size() < kPropertyFileTrailer) return bytes.size();
  const std::string_view before = bytes.substr(0, bytes.size() - kPropertyFileTrailer);
  if (Crc16(before) == CrcAt(bytes.substr(before.size()))) return kPropertyFileTrailer;
  const std::size_t behind_good = bytes.size() - EndOfGood(bytes);
  // An editor adds a line feed.
  const std::size_t most = kPropertyFileTrailer + (bytes.ends_with('\n') ? 1 : 0);
  if (behind_good <= most) return behind_good;
  return before.ends_with('\n') ? kPropertyFileTrailer : 0;
}

class Rescuing {
 public:
  void Take(std::string_view line, bool whole, std::size_t start);
  Rescue Result() && { return std::move(rescue_); }

 private:
  void Keep(std::string_view line, std::size_t start);
  void Leave(std::string_view piece, std::size_t start, const char* why);

  Rescue rescue_;
};

void Rescuing::Take(std::string_view line, bool whole, std::size_t start) {
  ++rescue_.line_count;
  if (!whole) return Leave(line, start, "its line feed is missing, so it may have been cut off");
  const char* why = WhyBad(line);
  if (why == nullptr) return Keep(line, start);
  const std::size_t own = FindOwnLine(line);
  Leave(line.substr(0, own), start, why);
  if (own < line.size()) Keep(line.substr(own), start + own);
}

void Rescuing::Keep(std::string_view line, std::size_t start) {
  if (rescue_.lines.size() == kMostRescuedLines)
    return Leave(line, start, "there are 250000 good lines before it, and no more are kept");
  PropfileLine& kept = rescue_.lines.emplace_back(TakePropfileLine(line));
  kept.number = rescue_.line_count;
  kept.start = start;
}

void Rescuing::Leave(std::string_view piece, std::size_t start, const char* why) {
  std::vector<LeftOut>& listed = rescue_.left_out;
  const std::size_t number = rescue_.line_count;
  const std::size_t end = start + piece.size();
  if (!listed.empty() && listed.back().why == why && listed.back().last_line + 1 == number) {
    listed.back().last_line = number;
    listed.back().end = end;
  } else if (listed.size() < kMostListed) {
    listed.push_back({number, number, start, end, why, Beginning(piece)});
  } else {
    ++rescue_.unlisted;
  }
}

}  // namespace

Rescue RescueLines(std::string_view bytes) {
  const std::size_t trailer = TrailerIn(bytes);
  const std::string_view body = bytes.substr(0, bytes.size() - trailer);
  Rescuing rescuing;
  for (std::size_t start = 0; start < body.size();) {
    const std::size_t end = std::min(body.find('\n', start), body.size());
    rescuing.Take(body.substr(start, end - start), end < body.size(), start);
    start = end + 1;
  }
  Rescue rescue = std::move(rescuing).Result();
  if (trailer == kPropertyFileTrailer) rescue.stored_crc = CrcAt(bytes.substr(body.size()));
  rescue.computed_crc = Crc16(body);
  return rescue;
}

std::string SoundFile(const Rescue& rescue) {
  std::string body;
  for (const PropfileLine& line : rescue.lines)
    body.append(line.text).append(1, '\n');
  return Sealed(std::move(body));
}

}  // namespace valmere::tools
