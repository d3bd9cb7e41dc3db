#include "call_sites.h"

#include "stack.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <new>
#include <vector>

namespace kelp_test {
namespace {

thread_local bool isNoting = false;  // what looks at the stack may call, too

uint64_t hashOf(const Stack& stack) {
  constexpr uint64_t factor = 1099511628211U;
  uint64_t hash = 14695981039346656037U;
  for (int i = 0; i < stack.size; ++i) {
    hash ^= reinterpret_cast<uintptr_t>(stack.frames.at(static_cast<size_t>(i)));
    hash *= factor;
  }
  return hash;
}

void* sharedMemory(size_t size) {
  void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) {
    std::abort();
  }
  return memory;
}

}  // namespace

CallSites::Log* CallSites::watching = nullptr;

CallSites::CallSites() : m_log(static_cast<Log*>(sharedMemory(sizeof(Log)))) {}

CallSites::~CallSites() {
  endWatch();
  munmap(m_log, sizeof(Log));
}

void CallSites::watch() {
  watching = m_log;
  setCallListener(note);
}

void CallSites::endWatch() { setCallListener(nullptr); }

void CallSites::note(Call call, int number) {
  if (isNoting) {
    return;
  }
  isNoting = true;
  Stack stack;
  stack.capture();
  const size_t place = watching->size.fetch_add(1);
  if (place < capacity) {
    watching->sites[place] = {call, number, hashOf(stack)};
  }
  isNoting = false;
}

std::set<std::pair<Call, int>> CallSites::repeated() const {
  std::map<std::pair<Call, uint64_t>, std::vector<int>> numbers;
  const size_t size = std::min<size_t>(m_log->size, capacity);
  for (size_t i = 0; i < size; ++i) {
    const Site& site = m_log->sites[i];
    numbers[{site.call, site.place}].push_back(site.number);
  }
  constexpr size_t kept = 2;
  std::set<std::pair<Call, int>> result;
  for (const auto& [site, all] : numbers) {
    for (size_t i = kept; i + 1 < all.size(); ++i) {
      result.emplace(site.first, all[i]);
    }
  }
  return result;
}

}  // namespace kelp_test
