#include "cmnrefcount.h"

#include <gtest/gtest.h>

namespace {

using kelp_cmn_4_4::CCmnRefCount;

class Exposed : public CCmnRefCount {
 public:
  explicit Exposed(bool* destroyed = nullptr) : m_destroyed(destroyed) {}
  ~Exposed() override {
    if (m_destroyed != nullptr) {
      *m_destroyed = true;
    }
  }
  volatile int& count() { return m_count; }

 private:
  bool* m_destroyed;
};

TEST(RefCount, StartsAtZero) {
  CCmnRefCount object;
  EXPECT_EQ(object.getCount(), 0);
}

TEST(RefCount, IncrementAddsOneAndReturnsTheNewCount) {
  CCmnRefCount object;
  EXPECT_EQ(object.increment(), 1);
  EXPECT_EQ(object.increment(), 2);
  EXPECT_EQ(object.getCount(), 2);
}

TEST(RefCount, DecrementTakesOneAndReturnsTheNewCount) {
  CCmnRefCount object;
  object.increment();
  object.increment();
  EXPECT_EQ(object.decrement(), 1);
  EXPECT_EQ(object.decrement(), 0);
  EXPECT_EQ(object.getCount(), 0);
}

TEST(RefCount, DecrementDeletesNothingAtZeroNorBelow) {
  bool destroyed = false;
  auto* object = new Exposed(&destroyed);
  object->increment();
  EXPECT_EQ(object->decrement(), 0);
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(object->decrement(), -1);
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(object->getCount(), -1);
  delete object;
}

TEST(RefCount, KeepsTheCountInItsField) {
  Exposed object;
  object.increment();
  EXPECT_EQ(object.count(), 1);
  object.count() = 41;
  EXPECT_EQ(object.getCount(), 41);
  EXPECT_EQ(object.increment(), 42);
}

TEST(RefCount, IsDeletedThroughItsVirtualDestructor) {
  bool destroyed = false;
  CCmnRefCount* object = new Exposed(&destroyed);
  object->increment();
  delete object;
  EXPECT_TRUE(destroyed);
}

}  // namespace
