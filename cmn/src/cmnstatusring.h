// A bounded queue of (pid, status) records that signal handlers fill.
#ifndef CMNSTATUSRING_H
#define CMNSTATUSRING_H

#include <atomic>
#include <cstddef>

namespace kelp_cmn_4_4 {

// Any number of producers, in handlers and threads, none of which ever waits; one consumer
// at a time.
class StatusRing {
 public:
  struct Record {
    int pid;
    int status;
  };

  struct Slot {
    std::atomic<bool> filled{false};
    Record record{};
  };

  // The slots are the caller's, all of them fresh; their count is a power of two.
  StatusRing(Slot* slots, size_t capacity) : m_slots(slots), m_capacity(capacity) {}

  // False when the ring is full.
  bool push(Record record) {
    // Only a first guess, which the exchange below checks.
    size_t tail = m_tail.load(std::memory_order_relaxed);
    do {
      // Acquires from pop(), so that the consumer has done with a slot before it is filled again.
      // Negative when other producers and the consumer have passed this tail meanwhile.
      const auto ahead = static_cast<std::ptrdiff_t>(tail - m_head.load(std::memory_order_acquire));
      if (ahead >= static_cast<std::ptrdiff_t>(m_capacity)) {
        return false;
      }
      // Releases to used(): whoever sees that this slot is taken sees what was pushed before. When
      // it fails, it has only made another guess.
    } while (!m_tail.compare_exchange_weak(tail, tail + 1, std::memory_order_release,
                                           std::memory_order_relaxed));
    Slot& slot = slotAt(tail);
    slot.record = record;
    // Releases the record to front().
    slot.filled.store(true, std::memory_order_release);
    return true;
  }

  // The consumer's: how many slots are taken, those whose producers have not finished included.
  // Acquires from push(). The head is the consumer's own.
  size_t used() const {
    return m_tail.load(std::memory_order_acquire) - m_head.load(std::memory_order_relaxed);
  }

  // The oldest record, or null when there is none or its producer has not finished. Acquires the
  // record from push().
  const Record* front() const {
    const Slot& slot = slotAt(m_head.load(std::memory_order_relaxed));
    return slot.filled.load(std::memory_order_acquire) ? &slot.record : nullptr;
  }

  // Removes what front() gave. The head's store releases all of that to push().
  void pop() {
    const size_t head = m_head.load(std::memory_order_relaxed);
    slotAt(head).filled.store(false, std::memory_order_relaxed);
    m_head.store(head + 1, std::memory_order_release);
  }

  // Only where no producer is left: forgets what some had begun and nobody will finish.
  void forgetUnfinished() {
    const size_t tail = m_tail.load();
    size_t end = m_head.load();
    for (size_t i = end; i != tail; ++i) {
      Slot& slot = slotAt(i);
      if (slot.filled.exchange(false)) {
        slotAt(end).record = slot.record;
        slotAt(end++).filled.store(true);
      }
    }
    m_tail.store(end);
  }

 private:
  static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<size_t>::is_always_lock_free,
                "a signal handler may use nothing that locks");

  Slot& slotAt(size_t position) const { return m_slots[position % m_capacity]; }

  Slot* const m_slots;
  const size_t m_capacity;
  std::atomic<size_t> m_head{0};
  std::atomic<size_t> m_tail{0};
};

}  // namespace kelp_cmn_4_4

#endif
