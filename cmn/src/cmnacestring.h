// ACE strings that are whole. Where memory fails, ACE makes a text whose c_str() is null, keeps the
// old text, or, in its "+", writes through null, and says nothing: these throw std::bad_alloc.
#ifndef CMNACESTRING_H
#define CMNACESTRING_H

#include "cmntypes.h"

#include <new>
#include <string>
#include <string_view>

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

inline std::string_view bytes(const char* text) { return text; }
inline std::string_view bytes(const tstr& text) { return {whole(text).c_str(), text.length()}; }

// In place of ACE's "+".
template <class... Parts>
tstr joined(const Parts&... parts) {
  std::string bytesOfAll;
  (bytesOfAll.append(bytes(parts)), ...);
  tstr text(bytesOfAll.data(), bytesOfAll.size());
  whole(text);
  return text;
}

}  // namespace kelp_cmn_4_4

#endif
