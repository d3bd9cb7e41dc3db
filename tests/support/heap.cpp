#include "heap.h"

#include "next_symbol.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#if defined(__SANITIZE_ADDRESS__) || defined(KELP_SANITIZE_THREADS)
#define KELP_SANITIZED_HEAP
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KELP_SANITIZED_HEAP
#endif
#endif

// The heap itself, which cannot be looked up: a look-up may need memory.
extern "C" {
#ifdef KELP_SANITIZED_HEAP
#define KELP_HEAP(function) __interceptor_##function
#else
#define KELP_HEAP(function) __libc_##function
#endif
void* KELP_HEAP(malloc)(size_t size);
void* KELP_HEAP(calloc)(size_t count, size_t size);
void* KELP_HEAP(realloc)(void* block, size_t size);
void KELP_HEAP(free)(void* block);
}

// The first calls come before the sanitizer is ready to check anything.
#define KELP_EARLY __attribute__((no_sanitize("address", "undefined")))

namespace kelp_test {
namespace {

bool (*processRule)(const HeapRequest& request) = nullptr;
HeapLender processLender;
HeapListener processListener;
unsigned char fresh = freshByte;
thread_local HeapWatch* innermost = nullptr;
thread_local bool inside = false;  // the heap's own requests are not told

class Inside {
 public:
  Inside() : m_before(std::exchange(inside, true)) {}
  ~Inside() { inside = m_before; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  bool m_before;
};

KELP_EARLY bool isWatched() { return !inside && (processRule != nullptr || innermost != nullptr); }

KELP_EARLY void* filled(void* block, size_t size) {
  if (block != nullptr) {
    std::memset(block, fresh, size);
  }
  return block;
}

size_t placeOf(HeapCall call) {
  size_t place = 0;
  for (auto bits = static_cast<unsigned int>(call); bits > 1; bits >>= 1) {
    ++place;
  }
  return place;
}

bool contains(HeapCall calls, HeapCall call) {
  return (static_cast<unsigned int>(calls) & static_cast<unsigned int>(call)) != 0;
}

}  // namespace

// What the replaced functions ask and tell.
struct HeapFront {
  static bool allows(const HeapRequest& request) {
    const int error = errno;
    bool allowed = processRule == nullptr || processRule(request);
    for (HeapWatch* watch = innermost; watch != nullptr; watch = watch->m_outer) {
      allowed = watch->allows(request) && allowed;
    }
    errno = allowed ? error : ENOMEM;
    return allowed;
  }

  static void* given(const HeapRequest& request, void* block) {
    if (processListener.given != nullptr && block != nullptr) {
      const Inside within;
      processListener.given(request, block);
    }
    for (HeapWatch* watch = innermost; watch != nullptr; watch = watch->m_outer) {
      watch->noteGiven(request, block);
    }
    return block;
  }

  static void released(const void* block, bool byDelete) {
    if (processListener.released != nullptr) {
      const Inside within;
      processListener.released(block);
    }
    for (HeapWatch* watch = innermost; watch != nullptr; watch = watch->m_outer) {
      watch->noteReleased(block, byDelete);
    }
  }

  // The block that `take` gives, unless somebody refuses it.
  template <class Take>
  KELP_EARLY static void* answer(HeapCall call, size_t size, const void* old, Take take) {
    if (!isWatched()) {
      return take();
    }
    const HeapRequest request{call, size, old};
    return allows(request) ? given(request, take()) : nullptr;
  }

  template <class Take>
  static void* answerNew(HeapCall call, size_t size, Take take) {
    return answer(call, size, nullptr, [&] {
      void* const lent = processLender.lend != nullptr ? processLender.lend(size) : nullptr;
      if (lent != nullptr) {
        return lent;
      }
      const Inside within;
      return filled(take(), size);
    });
  }

  static void* throwingNew(void* (*real)(size_t), size_t size) {
    void* const block = answerNew(HeapCall::throwingNew, size, [&] { return real(size); });
    return block != nullptr ? block : throw std::bad_alloc();
  }

  static void* nothrowNew(void* (*real)(size_t, const std::nothrow_t&), size_t size) {
    return answerNew(HeapCall::nothrowNew, size, [&] { return real(size, std::nothrow); });
  }

  template <class... Rest>
  static void release(void (*real)(void*, Rest...), void* block, Rest... rest) {
    if (block != nullptr && isWatched()) {
      released(block, true);
    }
    if (processLender.takeBack == nullptr || !processLender.takeBack(block)) {
      const Inside within;
      real(block, rest...);
    }
  }
};

FreshBytes::FreshBytes(unsigned char byte) { fresh = byte; }
FreshBytes::~FreshBytes() { fresh = freshByte; }

HeapWatch::HeapWatch() : HeapWatch(Decision()) {}

HeapWatch::HeapWatch(int nth, Times times, HeapCall calls)
    : m_nth(nth), m_times(times), m_calls(calls) {
  begin();
}

HeapWatch::HeapWatch(Decision decision) : m_decision(std::move(decision)) { begin(); }

void HeapWatch::begin() {
  m_insideBefore = std::exchange(inside, false);
  m_outer = std::exchange(innermost, this);
}

void HeapWatch::end() {
  if (m_ended) {
    return;
  }
  m_ended = true;
  HeapWatch** place = &innermost;
  while (*place != this) {
    place = &(*place)->m_outer;
  }
  *place = m_outer;
  inside = m_insideBefore;
}

int HeapWatch::requests(HeapCall calls) const {
  int sum = 0;
  for (size_t place = 0; place < m_counts.size(); ++place) {
    const auto call = static_cast<HeapCall>(1U << place);
    sum += contains(calls, call) ? m_counts.at(place) : 0;
  }
  return sum;
}

bool HeapWatch::isToRefuse(HeapCall call) {
  if (m_nth == 0 || !contains(m_calls, call)) {
    return false;
  }
  ++m_countedCalls;
  return m_countedCalls == m_nth || (m_times == Times::onwards && m_countedCalls > m_nth);
}

bool HeapWatch::allows(const HeapRequest& request) {
  if (m_deciding) {
    return true;
  }
  ++m_counts.at(placeOf(request.call));
  if (m_seen < remembered) {
    m_requests.at(m_seen) = request;
  }
  ++m_seen;
  bool allowed = !isToRefuse(request.call);
  if (m_decision) {
    m_deciding = true;
    allowed = m_decision(request) && allowed;
    m_deciding = false;
  }
  m_refused += allowed ? 0 : 1;
  return allowed;
}

void HeapWatch::noteGiven(const HeapRequest& request, const void* block) {
  if (m_deciding) {
    return;
  }
  if (m_seen <= remembered) {
    m_given.at(m_seen - 1) = block;
  }
  const bool took = request.call == HeapCall::realloc && request.old != nullptr &&
                    (block != nullptr || request.size == 0);
  const int more = (block != nullptr ? 1 : 0) - (took ? 1 : 0);
  m_blocks += more;
  m_newBlocks += contains(anyNew, request.call) ? more : 0;
}

void HeapWatch::noteReleased(const void* block, bool byDelete) {
  if (m_deciding) {
    return;
  }
  if (static_cast<size_t>(m_releases) < remembered) {
    m_released.at(static_cast<size_t>(m_releases)) = block;
  }
  ++m_releases;
  --m_blocks;
  m_newBlocks -= byDelete ? 1 : 0;
}

void setHeapRule(bool (*rule)(const HeapRequest& request)) { processRule = rule; }

void setHeapListener(const HeapListener& listener) { processListener = listener; }

void setHeapLender(const HeapLender& lender) { processLender = lender; }

}  // namespace kelp_test

using kelp_test::HeapCall;
using kelp_test::HeapFront;
using kelp_test::nextSymbol;

extern "C" {

KELP_EARLY void* malloc(size_t size) noexcept {
  return HeapFront::answer(HeapCall::malloc, size, nullptr, [size]() KELP_EARLY {
    return kelp_test::filled(KELP_HEAP(malloc)(size), size);
  });
}

KELP_EARLY void* calloc(size_t count, size_t size) noexcept {
  return HeapFront::answer(HeapCall::calloc, count * size, nullptr,
                           [=]() KELP_EARLY { return KELP_HEAP(calloc)(count, size); });
}

KELP_EARLY void* realloc(void* block, size_t size) noexcept {
  return HeapFront::answer(HeapCall::realloc, size, block,
                           [=]() KELP_EARLY { return KELP_HEAP(realloc)(block, size); });
}

KELP_EARLY void free(void* block) noexcept {
  if (block != nullptr && kelp_test::isWatched()) {
    HeapFront::released(block, false);
  }
  KELP_HEAP(free)(block);
}

#ifdef KELP_SANITIZED_HEAP
// The platform's asks malloc, the sanitizer's asks nobody.
char* strdup(const char* text) noexcept {
  const size_t size = std::strlen(text) + 1;
  void* const block = malloc(size);
  return block == nullptr ? nullptr : static_cast<char*>(std::memcpy(block, text, size));
}
#endif

}  // extern "C"

void* operator new(size_t size) {
  static const auto real = nextSymbol<void*(size_t)>("_Znwm");
  return HeapFront::throwingNew(real, size);
}

void* operator new[](size_t size) {
  static const auto real = nextSymbol<void*(size_t)>("_Znam");
  return HeapFront::throwingNew(real, size);
}

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
  static const auto real = nextSymbol<void*(size_t, const std::nothrow_t&)>("_ZnwmRKSt9nothrow_t");
  return HeapFront::nothrowNew(real, size);
}

void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
  static const auto real = nextSymbol<void*(size_t, const std::nothrow_t&)>("_ZnamRKSt9nothrow_t");
  return HeapFront::nothrowNew(real, size);
}

void operator delete(void* block) noexcept {
  static const auto real = nextSymbol<void(void*)>("_ZdlPv");
  HeapFront::release(real, block);
}

void operator delete[](void* block) noexcept {
  static const auto real = nextSymbol<void(void*)>("_ZdaPv");
  HeapFront::release(real, block);
}

void operator delete(void* block, size_t size) noexcept {
  static const auto real = nextSymbol<void(void*, size_t)>("_ZdlPvm");
  HeapFront::release(real, block, size);
}

void operator delete[](void* block, size_t size) noexcept {
  static const auto real = nextSymbol<void(void*, size_t)>("_ZdaPvm");
  HeapFront::release(real, block, size);
}

void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
  operator delete(block);
}

void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept {
  operator delete[](block);
}
