// A queue of (pid, status) records that signal handlers fill, and that grows without a heap.
#ifndef CMNSTATUSQUEUE_H
#define CMNSTATUSQUEUE_H

#include "cmnstatusring.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <new>

namespace kelp_cmn_4_4 {

// Rings, each with twice the room of the one before. A producer that finds the newest ring full
// puts another behind it, in pages that come from the system; a ring once made stays the one in use
// until it is full itself, and none is ever given back. So no producer can hold on to a ring that
// has gone or become another.
//
// What was pushed later comes out later: a producer uses the newest ring that it sees, and the
// consumer takes from the oldest that holds anything.
template <size_t levels>
class GrowingStatusQueue {
 public:
  using Record = StatusRing::Record;

  static constexpr size_t firstCapacity = 1024;

  // False, and the record is lost, when the newest ring is full and is the last one or the system
  // has no pages.
  bool push(Record record) {
    size_t level = 0;
    do {
      while (level + 1 < levels && ringAt(level + 1) != nullptr) {
        ++level;
      }
      if (ringAt(level)->push(record)) {
        return true;
      }
    } while (grow(level));
    return false;
  }

  // Gives the records, the oldest first, to a function that tells whether it consumed its record;
  // until it did not, or the producer of the next one has not finished. What comes meanwhile may
  // stay, so that no producer keeps this busy.
  template <class Consumer>
  void handOut(Consumer consume) {
    for (size_t left = used(); left > 0; --left) {
      StatusRing& ring = oldest();
      const Record* const record = ring.front();
      if (record == nullptr || !consume(*record)) {
        return;
      }
      ring.pop();
    }
  }

  bool empty() const { return used() == 0; }

  // As for the ring.
  void forgetUnfinished() {
    for (size_t level = 0; level < levels && ringAt(level) != nullptr; ++level) {
      ringAt(level)->forgetUnfinished();
    }
  }

 private:
  static size_t mappingSize(size_t capacity) {
    return sizeof(StatusRing) + capacity * sizeof(StatusRing::Slot);
  }

  // Acquires the ring that a producer in another thread made, and released with its address in
  // grow(). Relaxed, its slots could be looked for where the pages' zeros still are.
  StatusRing* ringAt(size_t level) const { return m_rings[level].load(std::memory_order_acquire); }

  size_t used() const {
    size_t sum = 0;
    for (size_t level = 0; level < levels && ringAt(level) != nullptr; ++level) {
      sum += ringAt(level)->used();
    }
    return sum;
  }

  // The oldest ring that holds anything. The newer ones are looked at first: whoever sees a record
  // there will then see, in the older ones, all that was pushed before it. That hangs on the tails,
  // which push() releases and used() acquires, and on this order of looking.
  StatusRing& oldest() {
    StatusRing* found = &m_first;
    for (size_t level = levels; level-- > 0;) {
      StatusRing* const ring = ringAt(level);
      if (ring != nullptr && ring->used() > 0) {
        found = ring;
      }
    }
    return *found;
  }

  // Whether there is a ring behind the one of that level now, be it another producer's.
  bool grow(size_t level) {
    if (level + 1 == levels) {
      return false;
    }
    const size_t capacity = firstCapacity << (level + 1);
    void* const pages = mmap(nullptr, mappingSize(capacity), PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) {
      return ringAt(level + 1) != nullptr;
    }
    // Releases the new ring to ringAt(). Release would be enough: a producer that comes second
    // takes nothing from here, but gets the other's ring from ringAt().
    StatusRing* none = nullptr;
    if (!m_rings[level + 1].compare_exchange_strong(none, makeRing(pages, capacity),
                                                    std::memory_order_acq_rel)) {
      munmap(pages, mappingSize(capacity));
    }
    return true;
  }

  // Pages from the system are zero, and so is a fresh slot: none has to be touched.
  static StatusRing* makeRing(void* pages, size_t capacity) {
    static_assert(sizeof(StatusRing) % alignof(StatusRing::Slot) == 0);
    auto* const slots = reinterpret_cast<StatusRing::Slot*>(static_cast<StatusRing*>(pages) + 1);
    return new (pages) StatusRing(slots, capacity);
  }

  static_assert(std::atomic<StatusRing*>::is_always_lock_free);

  std::array<StatusRing::Slot, firstCapacity> m_firstSlots;
  StatusRing m_first{m_firstSlots.data(), firstCapacity};
  std::array<std::atomic<StatusRing*>, levels> m_rings{&m_first};
};

using StatusQueue = GrowingStatusQueue<16>;  // 67 million records, far more than processes

}  // namespace kelp_cmn_4_4

#endif
