#include "cmnrefcount.h"

#include "cmnsmartptr.h"

namespace kelp_cmn_4_4 {

template class CCmnContextSingletonAllocator<CCmnRefCount>;

CCmnRefCount::CCmnRefCount() : m_count(0) {}

CCmnRefCount::~CCmnRefCount() = default;

// Deliberate: neither atomic nor locked, as objects stay in one thread, or under the host's
// own lock. `volatile` makes a call one read and one write in memory; it orders nothing
// between threads.
int CCmnRefCount::increment() {
  const int count = m_count + 1;
  m_count = count;
  return count;
}

// Deliberate: deletes nothing at 0, and goes below it. How an object is given back is the business
// of its holder's policy.
int CCmnRefCount::decrement() {
  const int count = m_count - 1;
  m_count = count;
  return count;
}

int CCmnRefCount::getCount() { return m_count; }

}  // namespace kelp_cmn_4_4
