// Texts of every length, for comparisons with a plain form.
#pragma once

#include "text_over.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace kelp_test {

// What a text is made of: mostly one of `common`, now and then one of `rare`.
template <class Char>
struct Ingredients {
  std::basic_string<Char> common;
  std::vector<std::basic_string<Char>> rare;
};

// Makes texts of a given length; what does not fit at the end is cut.
template <class Char>
class TextMixer {
 public:
  using Text = std::basic_string<Char>;

  explicit TextMixer(const Ingredients<Char>& ingredients, unsigned int seed = 1)
      : m_ingredients(ingredients), m_random(seed) {}

  Text common(size_t length) { return mixed(length, 0); }

  // So many in a hundred are rare.
  Text mixed(size_t length, size_t rareInAHundred) {
    Text text;
    while (text.size() < length) {
      text += below(100) < rareInAHundred ? rare() : Text(1, oneCommon());
    }
    text.resize(length);
    return text;
  }

  // A rare piece stands at this place, and all others are common.
  Text withRareAt(size_t place, size_t length) {
    Text text = common(place) + rare();
    text += common(length);
    text.resize(length);
    return text;
  }

  size_t below(size_t bound) { return m_random() % bound; }

 private:
  Char oneCommon() { return m_ingredients.common[below(m_ingredients.common.size())]; }
  const Text& rare() { return m_ingredients.rare[below(m_ingredients.rare.size())]; }

  const Ingredients<Char>& m_ingredients;
  std::mt19937 m_random;
};

// Calls `check` with texts of every length from 0 on, each of which ends at a page that nobody may
// touch: with common pieces only, with one rare piece at different places, and mixed. Ends where a
// check fails fatally.
template <class Char, class Check>
void forEachLength(const Ingredients<Char>& ingredients, Check check, size_t longest = 300) {
  TextMixer<Char> mixer(ingredients);
  GuardedTexts<Char> guarded(longest);
  for (size_t length = 0; length <= longest; ++length) {
    std::vector<std::basic_string<Char>> texts{mixer.common(length), mixer.mixed(length, 5),
                                               mixer.mixed(length, 50)};
    for (int i = 0; i < 4 && length > 0; ++i) {
      texts.push_back(mixer.withRareAt(mixer.below(length), length));
    }
    if (length > 0) {
      texts.push_back(mixer.withRareAt(0, length));
      texts.push_back(mixer.withRareAt(length - 1, length));
    }
    for (const auto& text : texts) {
      check(guarded.over(text).text());
      if (testing::Test::HasFatalFailure()) {
        return;
      }
    }
  }
}

}  // namespace kelp_test
