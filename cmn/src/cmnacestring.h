// ACE strings that are whole. Where memory fails, ACE makes a text whose c_str() is null, keeps the
// old text, or, in its "+", writes through null, and says nothing: these throw std::bad_alloc.
#ifndef CMNACESTRING_H
#define CMNACESTRING_H

#include "cmntypes.h"

#include <cstring>
#include <new>

namespace kelp_cmn_4_4 {

// The text itself, which may be one that its maker had no memory for.
inline const tstr& whole(const tstr& text) {
  if (text.c_str() == nullptr) {
    throw std::bad_alloc();
  }
  return text;
}

inline tstr copied(const tstr& text) {
  tstr copy(whole(text));
  whole(copy);
  return copy;
}

inline tstr copied(const char* text) {
  tstr copy(text);
  whole(copy);
  return copy;
}

// A target for which there is no memory keeps its text.
inline void assign(tstr& target, const tstr& text) {
  target = whole(text);
  if (target != text) {
    throw std::bad_alloc();
  }
}

inline void append(tstr& target, const char* text, size_t length) {
  const size_t wanted = target.length() + length;
  target.append(text, length);
  if (target.length() != wanted) {
    throw std::bad_alloc();
  }
}
inline void append(tstr& target, const char* text) { append(target, text, std::strlen(text)); }
inline void append(tstr& target, const tstr& text) {
  append(target, whole(text).c_str(), text.length());
}

// In place of ACE's "+".
template <class... Parts>
tstr joined(const Parts&... parts) {
  tstr text;
  (append(text, parts), ...);
  return text;
}

}  // namespace kelp_cmn_4_4

#endif
