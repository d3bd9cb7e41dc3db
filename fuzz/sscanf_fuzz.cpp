// On formats and texts on which the platform's sscanf has to agree, the scanner gives what it
// gives. Left out are, each for its reason:
// - input that ends after suppressed conversions only: the platform gives -1, this scanner 0;
// - "%c" with a width that assigns: one character only here;
// - L, before integers an extension of the platform, before floating numbers converted by
//   strtold there;
// - "0x" and "1e" without their digits, and widths that can cut them: the platform has changed its
//   mind about these;
// - hexadecimal floating numbers, infinities, NaN, "(nil)": not read here;
// - a A F C S m ' I $ and what is unknown: other conversions, or flags, on the platform;
// - "+--z" in a set: the platform begins a second range with the same "-".
#include "Q_sscanf.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "plain_scanner.h"
#include "plain_text.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace {

using kelp_fuzz::expect;
using kelp_fuzz::Input;
using kelp_test::isAt;
using kelp_test::PlainSlot;

constexpr size_t mostValues = 4;

// A format that some bytes of the input choose piece by piece.
class Format {
 public:
  explicit Format(Input& input) : m_input(input) {
    for (size_t count = 1 + input.upTo(mostValues - 1); count > 0; --count) {
      m_text += pick({"", "", "", " ", "-", "a", "%%", "0", "\xe4"});
      appendDirective();
    }
    m_text += pick({"", " ", "x"});
  }

  const std::string& text() const { return m_text; }

  // Whether no number of a text is one of those that are left out.
  bool suits(const std::string& text) const {
    if (m_hasFloat && text.find_first_of("nNiIxXpP") != std::string::npos) {
      return false;
    }
    if (m_hasNumber && text.find('(') != std::string::npos) {
      return false;
    }
    for (size_t i = 0; m_hasNumber && i < text.size(); ++i) {
      const bool isExponent = m_hasFloat && isAt(text, i, "eE");
      const size_t digit = i + (isExponent && isAt(text, i + 1, "+-") ? 2 : 1);
      const bool isCut = (isExponent && !isAt(text, digit, "0123456789")) ||
                         (isAt(text, i, "xX") && !isAt(text, digit, "0123456789abcdefABCDEF"));
      if (isCut || (m_hasWidth && (isExponent || isAt(text, i, "xX")))) {
        return false;
      }
    }
    return true;
  }

 private:
  template <size_t count>
  std::string pick(const char* const (&choices)[count]) {
    return choices[m_input.upTo(count - 1)];
  }

  std::string width() {
    const size_t width = m_input.upTo(63);
    return width > 24 ? "" : std::to_string(1 + width);
  }

  // Piece by piece, so that the order in which the input is asked is every compiler's.
  void appendDirective() {
    const std::string star = m_input.choice() ? "" : pick({"", "*"});
    const size_t kind = m_input.upTo(7);
    if (kind > 3) {
      return appendNumber(star);
    }
    m_text += "%";
    if (kind == 3) {
      m_text += pick({"", "hh", "h", "l", "ll", "q", "j", "t", "z"});
      m_text += "n";
      return;
    }
    m_text += star;
    m_text += kind == 0 && star.empty() ? "" : width();
    m_text += kind == 0   ? "c"
              : kind == 1 ? "s"
                          : pick({"[a-z]", "[^a-z]", "[0-9]", "[]-]", "[^]-]", "[z-a]", "[a-b-d]",
                                  "[-5]", "[5-]", "[ \t]", "[^ ]", "[\x80-\xff]", "[^\x01-\x20]"});
  }

  void appendNumber(const std::string& star) {
    m_hasNumber = true;
    const std::string field = width();
    m_hasWidth = m_hasWidth || !field.empty();
    const std::string letter =
        pick({"d", "d", "i", "i", "o", "u", "x", "X", "p", "e", "E", "f", "g", "G"});
    const bool isFloat = letter.find_first_of("eEfgG") == 0;
    m_hasFloat = m_hasFloat || isFloat;
    std::string modifier;
    if (isFloat) {
      modifier = pick({"", "l"});
    } else if (letter != "p") {
      modifier = pick({"", "hh", "h", "l", "ll", "q", "j", "t", "z"});
    }
    m_text += "%";
    m_text += star;
    m_text += field;
    m_text += modifier;
    m_text += letter;
  }

  Input& m_input;
  std::string m_text;
  bool m_hasNumber = false;
  bool m_hasFloat = false;
  bool m_hasWidth = false;
};

void checkAgainstThePlatform(const std::string& format, const std::string& text) {
  PlainSlot actual[mostValues];
  PlainSlot expected[mostValues];
  const auto at = [](PlainSlot* slots, size_t i) { return slots[i].bytes.data(); };
  constexpr int size = kelp_test::plainSlotSize;
  auto guarded = kelp_fuzz::atEdge(text);
  const char* const scanned = guarded.text().data();
  const int result = Q_sscanf(scanned, format.c_str(), at(actual, 0), size, at(actual, 1), size,
                              at(actual, 2), size, at(actual, 3), size);
  const int platforms = std::sscanf(scanned, format.c_str(), at(expected, 0), at(expected, 1),
                                    at(expected, 2), at(expected, 3));
  const bool onlySuppressed =
      result == 0 && platforms == -1 && format.find('*') != std::string::npos;
  expect(result == platforms || onlySuppressed, "the result of the platform");
  for (size_t i = 0; i < mostValues; ++i) {
    expect(actual[i] == expected[i], "the values of the platform");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kelp_fuzz::Input input(data, size);
  const Format format(input);
  // So short that the platform, which knows no sizes, fits it into a value.
  const std::string text = kelp_test::upToZero(input.bytes(kelp_test::plainSlotSize - 1));
  if (format.suits(text)) {
    checkAgainstThePlatform(format.text(), text);
  }
  return 0;
}
