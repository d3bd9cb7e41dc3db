#include "stack.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fnmatch.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

namespace kelp_test {
namespace {

// A function in a shared object, such as "libACE.so" and "ACE_Configuration_Heap::open(int)".
struct Place {
  std::string object;
  std::string function;
};

std::string demangled(const char* name) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> text(
      abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
  return status == 0 ? text.get() : name;
}

bool beginsWith(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

// A return address may lie behind the end of its function.
Place placeOf(void* address) {
  Dl_info info{};
  if (dladdr(static_cast<char*>(address) - 1, &info) == 0 || info.dli_fname == nullptr) {
    return {"?", "?"};
  }
  const char* const slash = std::strrchr(info.dli_fname, '/');
  std::ostringstream offset;
  offset << "+0x" << std::hex
         << reinterpret_cast<uintptr_t>(address) - reinterpret_cast<uintptr_t>(info.dli_fbase);
  return {slash == nullptr ? info.dli_fname : slash + 1,
          info.dli_sname == nullptr ? offset.str() : demangled(info.dli_sname)};
}

bool isThisProgram(const Place& place) {
  static const std::string own = placeOf(reinterpret_cast<void*>(&demangled)).object;
  return place.object == own;
}

bool isNobodys(const Place& place) {
  constexpr const char* beginnings[] = {"libc.so",    "libstdc++", "libgcc_s", "libasan",
                                        "libubsan",   "ld-linux",  "libm.so",  "libclang",
                                        "linux-vdso", "?"};
  return isThisProgram(place) ||
         std::any_of(std::begin(beginnings), std::end(beginnings),
                     [&](const char* name) { return beginsWith(place.object, name); });
}

bool isOf(const Place& place, const ForeignFault& fault) {
  return fnmatch(fault.object.c_str(), place.object.c_str(), 0) == 0 &&
         fnmatch(fault.function.c_str(), place.function.c_str(), 0) == 0;
}

// From the innermost function of interest up to where this program called.
std::vector<Place> placesOf(const Stack& stack) {
  std::vector<Place> places;
  for (int i = 0; i < stack.size; ++i) {
    const Place place = placeOf(stack.frames.at(static_cast<size_t>(i)));
    if (!isNobodys(place)) {
      places.push_back(place);
    } else if (!places.empty() && isThisProgram(place)) {
      break;
    }
  }
  return places;
}

}  // namespace

void Stack::capture() { size = backtrace(frames.data(), static_cast<int>(depth)); }

bool operator==(const Stack& a, const Stack& b) {
  return std::equal(a.frames.begin(), a.frames.begin() + a.size, b.frames.begin(),
                    b.frames.begin() + b.size);
}

const ForeignFault* foreignFault(Failing how, const Stack& stack) {
  for (const Place& place : placesOf(stack)) {
    if (beginsWith(place.object, "libkelp")) {
      break;
    }
    for (const ForeignFault& fault : foreignFaults()) {
      if (fault.how == how && isOf(place, fault)) {
        return &fault;
      }
    }
  }
  return nullptr;
}

std::string describe(const Stack& stack) {
  std::string text;
  for (const Place& place : placesOf(stack)) {
    text += "      " + place.object + " " + place.function + "\n";
  }
  return text.empty() ? "      (within this program)\n" : text;
}

}  // namespace kelp_test
