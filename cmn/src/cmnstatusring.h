// A bounded queue of (pid, status) records that signal handlers fill.
#ifndef CMNSTATUSRING_H
#define CMNSTATUSRING_H

#include <atomic>
#include <cstddef>

namespace kelp_cmn_4_4 {

// Any number of producers, in handlers and threads, none of which ever waits; one consumer at a
// time. Consumers that follow one another are ordered by what makes them one at a time.
//
// Three pairs of stores and loads carry all that the two sides must know of each other:
// - the tail, from push() to used(): which slots are taken;
// - a slot's mark, from push() to front(): that its record is whole;
// - the head, from pop() to push(): that a slot is free again.
//
// Nobody asks for one order of all of them, so acquire and release are enough. On x86-64 they make
// no other machine code than relaxed ones; it is the compiler that they keep from moving things.
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
    // Relaxed: only a first guess, which the exchange below checks.
    size_t tail = m_tail.load(std::memory_order_relaxed);
    do {
      // Acquires from pop(): the consumer has read the slot and unmarked it before it is filled
      // again. Relaxed, the record could be written while it is still read, or the mark set before
      // the consumer's unmarking, which would then hide the record and all behind it for ever.
      // Negative when other producers and the consumer have passed this tail meanwhile.
      const auto ahead = static_cast<std::ptrdiff_t>(tail - m_head.load(std::memory_order_acquire));
      if (ahead >= static_cast<std::ptrdiff_t>(m_capacity)) {
        return false;
      }
      // Releases to used(): whoever sees that this slot is taken sees what was pushed before, into
      // whichever ring. Relaxed, a child's later record in a new ring could be handed out before an
      // earlier one in the old ring, which would then overwrite it. It need not acquire, since the
      // head tells that the slot is free. When it fails it has only made another guess: relaxed.
    } while (!m_tail.compare_exchange_weak(tail, tail + 1, std::memory_order_release,
                                           std::memory_order_relaxed));
    Slot& slot = slotAt(tail);
    slot.record = record;
    // Releases the record to front(). Relaxed, half a record could be read.
    slot.filled.store(true, std::memory_order_release);
    return true;
  }

  // The consumer's: how many slots are taken, those whose producers have not finished included.
  // Acquires from push(), from the exchanges of all of these slots, as each of them goes on with
  // the release of the one before. The head is the consumer's own, so no order is needed for it.
  size_t used() const {
    return m_tail.load(std::memory_order_acquire) - m_head.load(std::memory_order_relaxed);
  }

  // The oldest record, or null when there is none or its producer has not finished. The mark
  // acquires the record from push().
  const Record* front() const {
    const Slot& slot = slotAt(m_head.load(std::memory_order_relaxed));
    return slot.filled.load(std::memory_order_acquire) ? &slot.record : nullptr;
  }

  // Removes what front() gave. The head's store releases to push() both the reading of the record
  // and the unmarking, which for that reason may be relaxed.
  void pop() {
    const size_t head = m_head.load(std::memory_order_relaxed);
    slotAt(head).filled.store(false, std::memory_order_relaxed);
    m_head.store(head + 1, std::memory_order_release);
  }

  // Only where no producer is left: forgets what some had begun and nobody will finish. With nobody
  // to be ordered with, any order would do.
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
