#include "rows.h"

#include <utility>

namespace kelp_bench {

std::string comparable(std::wstring_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)};
}

std::string comparable(const icu::UnicodeString& text) {
  std::string bytes;
  return text.toUTF8String(bytes);
}

std::string comparable(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) {
    all += std::to_string(text.size()) + ":" + text;
  }
  return all;
}

Row::Row(std::string name, double target, Pace pace)
    : m_name(std::move(name)), m_target(target), m_pace(pace) {}

std::deque<Row>& rows() {
  static std::deque<Row> all;
  return all;
}

std::vector<Growth>& growths() {
  static std::vector<Growth> all;
  return all;
}

}  // namespace kelp_bench
