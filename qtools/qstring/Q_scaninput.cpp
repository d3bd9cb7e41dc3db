#include "Q_scaninput.h"

#include <string.h>

#include <algorithm>

namespace q_scan {

bool Input::refill() {
  constexpr size_t window = 256;
  if (m_source == nullptr) {
    const size_t more = strnlen(m_end, std::min(window, m_textLimit));
    m_end += more;
    m_textLimit -= more;
    return more > 0;
  }
  m_consumedBefore = consumed();
  updateSource();
  const bool refilled = __Qrefill(m_source) == 0;
  adoptSource();
  return refilled;
}

void Input::adoptSource() {
  m_start = m_source->position;
  m_position = m_start;
  m_end = m_start + std::max(m_source->unread, 0);
}

void Input::updateSource() {
  if (m_position != m_source->position) {
    m_source->unread = static_cast<int>(m_end - m_position);
    m_source->position = m_position;
  }
}

}  // namespace q_scan
