// The limits and the words that go with them stand here once.
#include "tools/option_types.h"

#include <utility>

namespace valmere::tools {
namespace {

constexpr double kLongestTime = 1e6;  // seconds
constexpr std::size_t kHighestCount = 1'000'000'000;

}  // namespace

CLI::Option* AddSeconds(CLI::App& app, const std::string& name, const std::string& description,
                        std::function<void(std::chrono::milliseconds)> take) {
  return app
      .add_option_function<double>(
          name,
          [take = std::move(take)](double seconds) {
            take(std::chrono::milliseconds(static_cast<long long>(seconds * 1000)));
          },
          description)
      ->type_name("SECONDS")
      ->take_last()
      ->check(CLI::Range(0.0, kLongestTime).description(""));
}

CLI::Option* AddCount(CLI::App& app, std::size_t& count, const std::string& description) {
  return app.add_option("--count", count, description)
      ->type_name("N")
      ->check(CLI::Range(std::size_t{1}, kHighestCount).description(""));
}

}  // namespace valmere::tools
