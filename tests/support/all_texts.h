// All short texts over an alphabet, for comparisons with a plain form.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kelp_test {

// Calls `visit` with every text of up to `longest` pieces, the empty text first.
template <class Visit>
void forEachTextOf(const std::vector<std::string>& pieces, size_t longest, Visit visit) {
  std::vector<size_t> chosen;
  while (chosen.size() <= (pieces.empty() ? 0 : longest)) {
    std::string text;
    for (const size_t piece : chosen) {
      text += pieces[piece];
    }
    visit(static_cast<const std::string&>(text));
    size_t i = 0;
    while (i < chosen.size() && ++chosen[i] == pieces.size()) {
      chosen[i++] = 0;
    }
    if (i == chosen.size()) {
      chosen.push_back(0);
    }
  }
}

// The same with the characters of an alphabet, of which zero may be one.
template <class Visit>
void forEachText(const std::string& alphabet, size_t longest, Visit visit) {
  std::vector<std::string> pieces;
  for (const char c : alphabet) {
    pieces.emplace_back(1, c);
  }
  forEachTextOf(pieces, longest, visit);
}

inline std::vector<std::string> allTexts(const std::string& alphabet, size_t longest) {
  std::vector<std::string> texts;
  forEachText(alphabet, longest, [&texts](const std::string& text) { texts.push_back(text); });
  return texts;
}

}  // namespace kelp_test
