// The hidden command that shells ask, and the service that is asked in turn.
#include <chrono>
#include <cstdio>
#include <exception>
#include <string_view>
#include <utility>

#include "client/client.h"
#include "client/socket_path.h"
#include "tools/completion/completion.h"
#include "tools/completion/completion_words.h"

namespace valmere::tools {
namespace {

// Ample for a service on a loaded machine; one that takes longer hangs.
constexpr std::chrono::seconds kServicePatience{1};

void PrintLines(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    // One with a line feed would be read as two.
    if (line.find('\n') == std::string::npos) std::printf("%s\n", line.c_str());
  }
}

std::vector<std::string> CandidatesHere(const CLI::App& app, std::span<const std::string> words) {
  return Candidates(app, words, client::DefaultSocketPath(), LiveProperties);
}

// bash replaces the piece behind the last of its word breaks, of which ":" and "=" are two, or
// behind the quote that is open; so each candidate is cut where the piece begins, and what is left
// goes on in the quote that stands before it.
void AnswerBash(const CLI::App& app, std::string_view line, std::string_view piece) {
  const SplitLine split = SplitWords(line);
  std::vector<std::string> words = split.words;
  if (!split.in_word) words.emplace_back();
  if (words.size() < 2) return;
  std::size_t piece_start = split.last_start;
  if (line.ends_with(piece)) piece_start = line.size() - piece.size();
  const SplitLine before = SplitWords(line.substr(0, piece_start));
  const std::string kept = before.in_word ? before.words.back() : "";
  std::vector<std::string> lines;
  for (const std::string& candidate : CandidatesHere(app, std::span(words).subspan(1)))
    if (candidate.starts_with(kept))
      lines.push_back(QuoteRest(std::string_view(candidate).substr(kept.size()), before.open));
  PrintLines(lines);
}

}  // namespace

std::vector<client::Property> LiveProperties(const std::string& socket) {
  const auto deadline = client::Deadline::After(kServicePatience);
  auto client = client::Client::Connect(socket, deadline);
  if (!client) return {};
  auto properties = client->GetAll(deadline);
  return properties ? std::move(*properties) : std::vector<client::Property>();
}

bool AnswerCompletion(const CLI::App& app, std::span<const std::string> arguments) {
  if (arguments.empty() || arguments.front() != "__complete") return false;
  const std::span<const std::string> words = arguments.subspan(1);
  try {
    if (words.size() == 3 && words[0] == "--bash")
      AnswerBash(app, words[1], words[2]);
    else if (!words.empty() && words[0] == "--")
      PrintLines(CandidatesHere(app, words.subspan(1)));
  } catch (const std::exception&) {
    // A shell that completes shows no errors.
  }
  return true;
}

}  // namespace valmere::tools
