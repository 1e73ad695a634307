// Key paths (see KeyPath.h).

#include "KeyPath.h"

#include "SettingsText.h"

namespace mvcs {

std::vector<std::string> tokenize(const std::string& text, const std::string& separators) {
  std::vector<std::string> pieces;
  if (text.empty()) return pieces;
  for (std::size_t start = 0;;) {
    const std::size_t cut = text.find_first_of(separators, start);
    pieces.push_back(text.substr(start, cut == std::string::npos ? cut : cut - start));
    if (cut == std::string::npos) break;
    start = cut + 1;
  }
  return pieces;
}

const morv_common::KeyPathRule kWatchedKeyPath = {true, IsCStringText};

}  // namespace mvcs
