/**
 * @file cmnrefcount.h
 * @brief The use count that shared objects carry.
 */
#ifndef CMNREFCOUNT_H
#define CMNREFCOUNT_H

#include "cmnexport.h"

namespace kelp_cmn_4_4 {

/**
 * Base of the objects that several CCmnSmartPtr holders share.
 *
 * A fresh object counts 0 and belongs to whoever made it. The first holder brings the count to 1;
 * the last one to let go deletes the object. The count itself never deletes anything.
 *
 * The count is not atomic: holders of one object must not be copied or released from several
 * threads at once without the caller's own lock. Counted objects cannot be copied.
 */
class KELP_CMN_API CCmnRefCount {
 public:
  /** Starts with the count 0. */
  CCmnRefCount();

  CCmnRefCount(const CCmnRefCount&) = delete;
  CCmnRefCount& operator=(const CCmnRefCount&) = delete;

  /** Does nothing, whatever the count. */
  virtual ~CCmnRefCount();

  /**
   * Adds one to the count.
   * @return the new count
   */
  virtual int increment();

  /**
   * Takes one from the count. Tests for nothing and deletes nothing: that is the holder's business.
   * @return the new count; -1 for an object that nobody held
   */
  virtual int decrement();

  /** The number of holders; 1 while a holder destroys the object. */
  virtual int getCount();

 protected:
  /** The number of holders. */
  volatile int m_count;
};

}  // namespace kelp_cmn_4_4

#endif
