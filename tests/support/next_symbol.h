// The function that a test program stands in front of.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <type_traits>

namespace kelp_test {

// The function of this name, mangled if it is C++'s, that comes behind the program's own. Ends the
// process where there is none. Give its type, or that of a pointer to it:
//
//   extern "C" int isupper(int c) noexcept {
//     static const auto platforms = nextSymbol<decltype(isupper)>("isupper");
template <class Function>
std::remove_pointer_t<Function>* nextSymbol(const char* name) {
  void* const symbol = dlsym(RTLD_NEXT, name);
  if (symbol == nullptr) {
    std::fprintf(stderr, "there is no %s to stand in front of\n", name);
    std::abort();
  }
  return reinterpret_cast<std::remove_pointer_t<Function>*>(symbol);
}

}  // namespace kelp_test
