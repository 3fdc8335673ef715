// The words of a command as the kernel takes them.
#pragma once

#include <string>
#include <vector>

namespace valmere::test {

// Pointers into the texts, with a null pointer at the end.
inline std::vector<char*> ExecWords(std::vector<std::string>& texts) {
  std::vector<char*> words;
  for (std::string& text : texts) {
    words.push_back(text.data());
  }
  words.push_back(nullptr);
  return words;
}

}  // namespace valmere::test
