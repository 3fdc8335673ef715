#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>

namespace valmere::test {

// While it lives, what is written to standard error is kept.
class StandardErrorOf {
 public:
  StandardErrorOf() : kept_(std::tmpfile()), before_(dup(STDERR_FILENO)) {
    dup2(fileno(kept_), STDERR_FILENO);
  }
  ~StandardErrorOf() {
    dup2(before_, STDERR_FILENO);
    close(before_);
    std::fclose(kept_);
  }
  StandardErrorOf(const StandardErrorOf&) = delete;
  StandardErrorOf& operator=(const StandardErrorOf&) = delete;

  std::string text() const {
    std::string text(4096, '\0');
    const ssize_t length = pread(fileno(kept_), text.data(), text.size(), 0);
    text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return text;
  }

 private:
  std::FILE* const kept_;
  const int before_;
};

}  // namespace valmere::test
