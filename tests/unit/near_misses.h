// Texts that are nearly a word.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nebulark {

// The word twice; and with one byte inserted (also a line feed, like a blank), removed or changed at every place.
inline std::vector<std::string> near_misses(std::string_view word) {
  std::vector<std::string> texts{std::string(word) + std::string(word)};
  for (std::size_t place = 0; place <= word.size(); ++place) {
    texts.push_back(std::string(word).insert(place, "~"));
    texts.push_back(std::string(word).insert(place, "\n"));
  }
  for (std::size_t place = 0; place < word.size(); ++place) {
    texts.push_back(std::string(word).erase(place, 1));
    texts.push_back(std::string(word).replace(place, 1, "~"));
  }
  return texts;
}

} // namespace nebulark
