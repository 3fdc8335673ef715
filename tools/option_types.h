// Options that several commands have.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <string>

namespace valmere::tools {

// An option for a time in seconds, fractions allowed.
CLI::Option* AddSeconds(CLI::App& app, const std::string& name, const std::string& description,
                        std::function<void(std::chrono::milliseconds)> take);

// An option for a number of at least one.
CLI::Option* AddCount(CLI::App& app, std::size_t& count, const std::string& description);

}  // namespace valmere::tools
