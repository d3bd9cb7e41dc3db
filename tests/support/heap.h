// Stands in front of malloc, calloc, realloc, free and operator new and delete, so that a test can
// refuse memory, count what is asked for and look at it. For test programs that have heap.cpp among
// their sources. The blocks are the platform's, or the sanitizer's, which still sees whether what
// new gave goes to delete. Where nobody watches, all is as ever, in threads, signal handlers and
// forked children, too. The aligned forms are left alone.
#pragma once

#include <array>
#include <cstddef>
#include <functional>

namespace kelp_test {

// The kinds of requests, as bits.
enum class HeapCall : unsigned int {
  malloc = 1,
  calloc = 2,
  realloc = 4,
  throwingNew = 8,  // operator new and new[] in their ordinary forms
  nothrowNew = 16,  // and in those that give null
};
constexpr HeapCall operator|(HeapCall a, HeapCall b) {
  return static_cast<HeapCall>(static_cast<unsigned int>(a) | static_cast<unsigned int>(b));
}
constexpr HeapCall anyNew = HeapCall::throwingNew | HeapCall::nothrowNew;
constexpr HeapCall anyHeapCall = HeapCall::malloc | HeapCall::calloc | HeapCall::realloc | anyNew;

// A request of the program's, or of a library's in it. What the heap asks of itself is none, such
// as the malloc within new. An exception's memory is a malloc.
struct HeapRequest {
  HeapCall call{};
  size_t size = 0;
  const void* old = nullptr;  // the block that realloc is to resize
};

// What every byte of a block holds at first that comes from malloc or new.
constexpr unsigned char freshByte = 0xa5;

// Has it hold another one, in the whole process, for as long as it lives.
class FreshBytes {
 public:
  explicit FreshBytes(unsigned char byte);
  ~FreshBytes();
  FreshBytes(const FreshBytes&) = delete;
  FreshBytes& operator=(const FreshBytes&) = delete;
};

// Which of the calls that count fail: the n-th, or all from the n-th on.
enum class Times { once, onwards };

// Watches what its thread does with the heap, until it ends. It allocates nothing, so a signal
// handler may have one. Several may watch at once.
//
//   HeapWatch watch(2);  // refuses the second request
//   operation();
//   watch.end();
//   EXPECT_EQ(watch.requests(), 3);
class HeapWatch {
 public:
  // Whether a request may be granted. It may also do what a signal handler would do that comes at
  // this moment: what it asks for itself is not seen.
  using Decision = std::function<bool(const HeapRequest& request)>;

  HeapWatch();
  explicit HeapWatch(int nth, Times times = Times::once, HeapCall calls = anyHeapCall);
  explicit HeapWatch(Decision decision);
  ~HeapWatch() { end(); }
  HeapWatch(const HeapWatch&) = delete;
  HeapWatch& operator=(const HeapWatch&) = delete;

  // From here on nothing is seen or refused. Call it before GoogleTest's checks, which need memory
  // of their own.
  void end();

  int requests(HeapCall calls = anyHeapCall) const;
  int refused() const { return m_refused; }
  int releases() const { return m_releases; }  // of free and operator delete

  // How many blocks more there are than when it began, or fewer, if it is negative.
  int blocks() const { return m_blocks; }
  int newBlocks() const { return m_newBlocks; }  // those of new and delete alone

  // The first ones, in their order.
  static constexpr size_t remembered = 64;
  const HeapRequest& request(size_t number) const { return m_requests.at(number); }
  const void* given(size_t number) const { return m_given.at(number); }  // null: refused
  const void* released(size_t number) const { return m_released.at(number); }

 private:
  friend struct HeapFront;

  void begin();
  bool allows(const HeapRequest& request);
  bool isToRefuse(HeapCall call);
  void noteGiven(const HeapRequest& request, const void* block);
  void noteReleased(const void* block, bool byDelete);

  const Decision m_decision;
  const int m_nth = 0;
  const Times m_times = Times::once;
  const HeapCall m_calls = anyHeapCall;

  bool m_ended = false;
  bool m_deciding = false;
  bool m_insideBefore = false;
  HeapWatch* m_outer = nullptr;

  std::array<int, 5> m_counts{};  // by kind
  int m_countedCalls = 0;         // of those that may be refused
  int m_refused = 0;
  int m_releases = 0;
  int m_blocks = 0;
  int m_newBlocks = 0;
  size_t m_seen = 0;
  std::array<HeapRequest, remembered> m_requests{};
  std::array<const void*, remembered> m_given{};
  std::array<const void*, remembered> m_released{};
};

// A rule for the whole process: all threads, signal handlers and forked children. False refuses a
// request. Null for none, as at first.
void setHeapRule(bool (*rule)(const HeapRequest& request));

// Is told of every block that is watched, as soon as it is given, and before it is released.
struct HeapListener {
  void (*given)(const HeapRequest& request, const void* block) = nullptr;
  void (*released)(const void* block) = nullptr;
};
// For the whole process, too; an empty one for none.
void setHeapListener(const HeapListener& listener);

// Blocks of a test's own, which operator new hands out instead of the heap's.
struct HeapLender {
  void* (*lend)(size_t size) = nullptr;     // null leaves the request to the heap
  bool (*takeBack)(void* block) = nullptr;  // false for what it did not lend
};
// For the whole process, too; an empty one for none.
void setHeapLender(const HeapLender& lender);

}  // namespace kelp_test
