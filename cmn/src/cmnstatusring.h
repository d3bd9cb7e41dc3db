// A fixed queue of (pid, status) records that signal handlers fill.
#ifndef CMNSTATUSRING_H
#define CMNSTATUSRING_H

#include <array>
#include <atomic>
#include <cstddef>

namespace kelp_cmn_4_4 {

// Any number of producers, in handlers and threads, none of which ever waits; one consumer at a
// time.
class StatusRing {
 public:
  static constexpr size_t capacity = 1024;

  struct Record {
    int pid;
    int status;
  };

  // False when the ring is full.
  bool push(Record record) {
    size_t tail = m_tail.load(std::memory_order_relaxed);
    do {
      // Negative when other producers and the consumer have passed this tail meanwhile.
      const auto used = static_cast<std::ptrdiff_t>(tail - m_head.load(std::memory_order_acquire));
      if (used >= static_cast<std::ptrdiff_t>(capacity)) {
        return false;
      }
    } while (!m_tail.compare_exchange_weak(tail, tail + 1, std::memory_order_relaxed));
    Slot& slot = m_slots[tail % capacity];
    slot.record = record;
    slot.filled.store(true, std::memory_order_release);
    return true;
  }

  // The oldest record, or null when there is none or its producer has not finished.
  const Record* front() const {
    const Slot& slot = m_slots[m_head.load(std::memory_order_relaxed) % capacity];
    return slot.filled.load(std::memory_order_acquire) ? &slot.record : nullptr;
  }

  // Removes what front() gave.
  void pop() {
    const size_t head = m_head.load(std::memory_order_relaxed);
    m_slots[head % capacity].filled.store(false, std::memory_order_relaxed);
    m_head.store(head + 1, std::memory_order_release);
  }

  bool empty() const {
    return m_head.load(std::memory_order_relaxed) == m_tail.load(std::memory_order_relaxed);
  }

 private:
  static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<size_t>::is_always_lock_free,
                "a signal handler may use nothing that locks");

  struct Slot {
    std::atomic<bool> filled{false};
    Record record{};
  };
  std::array<Slot, capacity> m_slots;
  std::atomic<size_t> m_head{0};
  std::atomic<size_t> m_tail{0};
};

}  // namespace kelp_cmn_4_4

#endif
