#include "cmnrefcount.h"

#include "cmnsmartptr.h"

namespace kelp_cmn_4_4 {

template class CCmnContextSingletonAllocator<CCmnRefCount>;

CCmnRefCount::CCmnRefCount() : m_count(0) {}

CCmnRefCount::~CCmnRefCount() = default;

int CCmnRefCount::increment() {
  const int count = m_count + 1;
  m_count = count;
  return count;
}

int CCmnRefCount::decrement() {
  const int count = m_count - 1;
  m_count = count;
  return count;
}

int CCmnRefCount::getCount() { return m_count; }

}  // namespace kelp_cmn_4_4
