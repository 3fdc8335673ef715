// What could stand where the user asks for completion.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "client/property.h"

namespace CLI {
class App;
}

namespace valmere::tools {

// Gives the properties of the service that listens at a socket.
using PropertySource = std::function<std::vector<client::Property>(const std::string& socket)>;

// Asks the service itself, for a second at most; no properties when it does not answer.
std::vector<client::Property> LiveProperties(const std::string& socket);

// What may stand for the last of `words`, which are those after the program's name: commands,
// options and choices as `app` knows them, properties from `source`, files. What a value is, its
// name in `app` tells: NAME and PATTERN are properties, FILE and PATH files. In byte order.
// `socket` is asked unless the words name another.
std::vector<std::string> Candidates(const CLI::App& app, std::span<const std::string> words,
                                    const std::string& socket, const PropertySource& source);

// Answers a shell's "valmere __complete …" on standard output, one candidate a line:
//   __complete -- WORDS…           the words after the program's name, the last to be completed
//   __complete --bash LINE PIECE   a line of bash up to the cursor, and the end of it that bash is
//                                  about to replace; candidates replace just that, quoted
// True when `arguments`, without the program's name, were that. Never complains: the user is in the
// middle of a line.
bool AnswerCompletion(const CLI::App& app, std::span<const std::string> arguments);

}  // namespace valmere::tools
