#include "cmnsmartptr.h"

#include "cmntracelog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnContextSingletonAllocator;
using kelp_cmn_4_4::CCmnNullAllocator;
using kelp_cmn_4_4::CCmnRefCount;
using kelp_cmn_4_4::CCmnSmartPtr;
using kelp_cmn_4_4::CCmnTraceLog;
using testing::ElementsAre;
using testing::IsEmpty;

using Calls = std::vector<std::string>;

// Writes down what happens to its count and when it is destroyed.
class Recorded : public CCmnRefCount {
 public:
  explicit Recorded(Calls& calls, std::string name = "")
      : m_calls(calls), m_name(std::move(name)) {}
  ~Recorded() override {
    m_calls.push_back(m_name + "destroyed at " + std::to_string(m_count));
    if (whenDestroyed) {
      whenDestroyed();
    }
  }
  int increment() override {
    const int count = CCmnRefCount::increment();
    m_calls.push_back(m_name + "up to " + std::to_string(count));
    return count;
  }
  int decrement() override {
    const int count = CCmnRefCount::decrement();
    m_calls.push_back(m_name + "down to " + std::to_string(count));
    return count;
  }

  std::function<void()> whenDestroyed;

 private:
  Calls& m_calls;
  std::string m_name;
};

using Holder = CCmnSmartPtr<Recorded, CCmnNullAllocator<Recorded>>;

// A holder made of a raw pointer for a comparison would delete an object that nobody holds yet.
template <class Other, class = void>
constexpr bool comparesWith = false;
template <class Other>
constexpr bool
    comparesWith<Other, std::void_t<decltype(std::declval<Holder>() == std::declval<Other>())>> =
        true;
static_assert(comparesWith<Holder> && !comparesWith<Recorded*> && !comparesWith<std::nullptr_t>);
static_assert(!comparesWith<CCmnSmartPtr<Recorded, CCmnContextSingletonAllocator<Recorded>>>);

TEST(SmartPtr, IsEmptyByDefault) {
  const Holder holder;
  EXPECT_EQ(holder.get(), nullptr);
  EXPECT_FALSE(static_cast<bool>(holder));
}

TEST(SmartPtr, IsEmptyWhenMadeOfNull) {
  const Holder holder(static_cast<Recorded*>(nullptr));
  EXPECT_EQ(holder.get(), nullptr);
}

TEST(SmartPtr, EmptyHoldersCanBeCopiedAssignedAndDestroyed) {
  Holder first;
  const Holder second(first);
  first = second;
  EXPECT_FALSE(static_cast<bool>(first));
  EXPECT_FALSE(static_cast<bool>(second));
}

TEST(SmartPtr, LastHolderPutsTheCountBackToOneAndDeletes) {
  Calls calls;
  {
    const Holder holder(new Recorded(calls));
    EXPECT_THAT(calls, ElementsAre("up to 1"));
  }
  EXPECT_THAT(calls, ElementsAre("up to 1", "down to 0", "up to 1", "destroyed at 1"));
}

TEST(SmartPtr, GivesAccessToItsObject) {
  Calls calls;
  auto* const object = new Recorded(calls);
  const Holder holder = object;
  EXPECT_EQ(holder.get(), object);
  EXPECT_EQ(&*holder, object);
  EXPECT_EQ(holder->getCount(), 1);
  EXPECT_TRUE(static_cast<bool>(holder));
  EXPECT_THAT(calls, ElementsAre("up to 1"));
}

TEST(SmartPtr, CopyTakesAShareThatTheObjectOutlivesUntilBothAreGone) {
  Calls calls;
  {
    const Holder first(new Recorded(calls));
    {
      const Holder second(first);
      EXPECT_EQ(second.get(), first.get());
      EXPECT_EQ(first->getCount(), 2);
    }
    EXPECT_THAT(calls, ElementsAre("up to 1", "up to 2", "down to 1"));
    calls.clear();
  }
  EXPECT_THAT(calls, ElementsAre("down to 0", "up to 1", "destroyed at 1"));
}

TEST(SmartPtr, MovingCopies) {
  Calls calls;
  Holder first(new Recorded(calls));
  const Holder second(std::move(first));
  EXPECT_EQ(first.get(), second.get());
  Holder third;
  third = std::move(first);
  EXPECT_EQ(first.get(), third.get());
  EXPECT_EQ(first->getCount(), 3);
}

TEST(SmartPtr, SecondHolderMadeOfThePointerSharesTheCount) {
  Calls calls;
  auto* const object = new Recorded(calls);
  {
    const Holder first(object);
    const Holder second(object);
    EXPECT_EQ(object->getCount(), 2);
    calls.clear();
  }
  EXPECT_THAT(calls, ElementsAre("down to 1", "down to 0", "up to 1", "destroyed at 1"));
}

TEST(SmartPtr, SelfAssignmentTouchesNothing) {
  Calls calls;
  Holder holder(new Recorded(calls));
  calls.clear();
  const Holder& itself = holder;
  EXPECT_EQ(&(holder = itself), &holder);
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_EQ(holder->getCount(), 1);
}

TEST(SmartPtr, AssignmentOfAHolderOfTheSameObjectGoesDownAndUpAgain) {
  Calls calls;
  Holder first(new Recorded(calls));
  const Holder second(first);
  calls.clear();
  EXPECT_EQ(&(first = second), &first);
  EXPECT_THAT(calls, ElementsAre("down to 1", "up to 2"));
  EXPECT_EQ(first.get(), second.get());
}

TEST(SmartPtr, AssignmentOfAnEmptyHolderReleases) {
  Calls calls;
  Holder holder(new Recorded(calls));
  calls.clear();
  holder = Holder();
  EXPECT_THAT(calls, ElementsAre("down to 0", "up to 1", "destroyed at 1"));
  EXPECT_EQ(holder.get(), nullptr);
}

TEST(SmartPtr, AssignmentOfAnEmptyHolderEmptiesAlsoWhereOthersStillHold) {
  Calls calls;
  Holder first(new Recorded(calls));
  const Holder second(first);
  first = Holder();
  EXPECT_EQ(first.get(), nullptr);
  EXPECT_EQ(second->getCount(), 1);
}

TEST(SmartPtr, AssignmentToAnEmptyHolderTakesAShare) {
  Calls calls;
  const Holder full(new Recorded(calls));
  Holder holder;
  calls.clear();
  holder = full;
  EXPECT_THAT(calls, ElementsAre("up to 2"));
  EXPECT_EQ(holder.get(), full.get());
}

TEST(SmartPtr, AssignmentReleasesTheOldObjectBeforeItTakesTheNewOne) {
  Calls calls;
  Holder target(new Recorded(calls, "old "));
  const Holder source(new Recorded(calls, "new "));
  calls.clear();
  target = source;
  EXPECT_THAT(calls,
              ElementsAre("old down to 0", "old up to 1", "old destroyed at 1", "new up to 2"));
  EXPECT_EQ(target.get(), source.get());
}

TEST(SmartPtr, AssignmentReadsTheSourceBeforeTheReleaseDestroysIt) {
  Calls calls;
  const Holder keeper(new Recorded(calls, "next "));
  auto source = std::make_unique<Holder>(keeper);
  auto* const owner = new Recorded(calls, "owner ");
  owner->whenDestroyed = [&source] { source.reset(); };
  Holder target(owner);
  target = *source;
  EXPECT_EQ(source, nullptr);
  EXPECT_EQ(target.get(), keeper.get());
  EXPECT_EQ(keeper->getCount(), 2);
}

TEST(SmartPtr, AssignmentOfAPointerTakesTheObject) {
  Calls calls;
  Holder holder;
  holder = new Recorded(calls);
  EXPECT_EQ(holder->getCount(), 1);
  holder = nullptr;
  EXPECT_EQ(calls.back(), "destroyed at 1");
}

TEST(SmartPtr, TemporaryHolderOnAnObjectBeingDestroyedDoesNotDestroyItAgain) {
  Calls calls;
  auto* const object = new Recorded(calls);
  object->whenDestroyed = [object] { const Holder temporary(object); };
  { const Holder holder(object); }
  EXPECT_THAT(calls, ElementsAre("up to 1", "down to 0", "up to 1", "destroyed at 1", "up to 2",
                                 "down to 1"));
}

TEST(SmartPtr, StillPointsAtTheObjectWhileItIsDestroyed) {
  Calls calls;
  auto* const object = new Recorded(calls);
  Holder holder(object);
  const Recorded* seen = nullptr;
  object->whenDestroyed = [&seen, &holder] { seen = holder.get(); };
  holder = Holder();
  EXPECT_EQ(static_cast<const void*>(seen), static_cast<const void*>(object));
  EXPECT_EQ(holder.get(), nullptr);
}

TEST(SmartPtr, DeletesOnlyWhenTheCountComesToZeroNotBelow) {
  Calls calls;
  auto* const object = new Recorded(calls);
  {
    Holder holder(object);
    object->decrement();
    calls.clear();
    holder = Holder();
    EXPECT_EQ(holder.get(), nullptr);
  }
  EXPECT_THAT(calls, ElementsAre("down to -1"));
  delete object;
}

TEST(SmartPtr, ComparesTheObjectsNotTheHolders) {
  Calls calls;
  const Holder first(new Recorded(calls));
  const Holder second(first);
  const Holder other(new Recorded(calls));
  EXPECT_TRUE(first == second);
  EXPECT_FALSE(first != second);
  EXPECT_FALSE(first == other);
  EXPECT_TRUE(first != other);
  EXPECT_TRUE(Holder() == Holder());
  EXPECT_FALSE(Holder() != Holder());
  EXPECT_TRUE(first != Holder());
  EXPECT_FALSE(first == Holder());
}

TEST(SmartPtr, ErasedFromAMapReleases) {
  Calls calls;
  std::map<std::string, Holder> map;
  map["a"] = Holder(new Recorded(calls));
  calls.clear();
  map.erase("a");
  EXPECT_THAT(calls, ElementsAre("down to 0", "up to 1", "destroyed at 1"));
}

TEST(SmartPtr, PassesAReturnedHolderOnWithoutLosingTheObject) {
  Calls calls;
  const auto make = [&calls] {
    Holder made(new Recorded(calls));
    return made;
  };
  const Holder holder = make();
  EXPECT_EQ(holder->getCount(), 1);
  EXPECT_NE(calls.back(), "destroyed at 1");
}

// A policy of somebody's own.
struct ScriptedPolicy {
  static Recorded* allocate() { return new Recorded(calls, "made "); }
  static void destroy(Recorded* object) {
    calls.push_back("given back");
    delete object;
  }
  inline static Calls calls;
};

TEST(SmartPtr, AsksThePolicyOnlyInCreateAndGivesBackThroughIt) {
  using PolicyHolder = CCmnSmartPtr<Recorded, ScriptedPolicy>;
  ScriptedPolicy::calls.clear();
  { const PolicyHolder empty; }
  EXPECT_THAT(ScriptedPolicy::calls, IsEmpty());
  { const PolicyHolder holder = PolicyHolder::create(); }
  EXPECT_THAT(ScriptedPolicy::calls, ElementsAre("made up to 1", "made down to 0", "made up to 1",
                                                 "given back", "made destroyed at 1"));
}

// One count below two virtual paths; abstract on either of them.
struct Left : virtual CCmnRefCount {
  virtual int left() = 0;
};
struct Right : virtual CCmnRefCount {
  virtual int right() = 0;
};
struct Both : Left, Right {
  explicit Both(bool& destroyed) : m_destroyed(destroyed) {}
  ~Both() override { m_destroyed = getCount() == 1; }
  int left() override { return 1; }
  int right() override { return 2; }
  bool& m_destroyed;
};

TEST(SmartPtr, HoldersOfVirtualBasesShareTheOneCount) {
  bool destroyed = false;
  Both* const object = new Both(destroyed);
  CCmnSmartPtr<Left, CCmnNullAllocator<Left>> left(object);
  {
    const CCmnSmartPtr<Right, CCmnNullAllocator<Right>> right(object);
    EXPECT_EQ(object->getCount(), 2);
    EXPECT_EQ(left->left() + right->right(), 3);
  }
  EXPECT_EQ(object->getCount(), 1);
  EXPECT_FALSE(destroyed);
  left = nullptr;
  EXPECT_TRUE(destroyed);
}

TEST(NullAllocator, MakesNothing) {
  EXPECT_EQ(CCmnNullAllocator<Left>::allocate(), nullptr);
  EXPECT_FALSE(static_cast<bool>(Holder::create()));
}

TEST(NullAllocator, DestroysThroughTheVirtualDestructor) {
  bool destroyed = false;
  Both* const object = new Both(destroyed);
  object->increment();
  CCmnNullAllocator<Right>::destroy(object);
  EXPECT_TRUE(destroyed);
}

// An object of its own kind for each test, so that no test sees another's instance.
template <int test>
class Shared : public CCmnRefCount {
 public:
  Shared() { ++made; }
  ~Shared() override {
    ++destroyed;
    countWhenDestroyed = m_count;
    if (whenDestroyed) {
      whenDestroyed();
    }
  }
  inline static int made = 0;
  inline static int destroyed = 0;
  inline static int countWhenDestroyed = -1;
  inline static std::function<void()> whenDestroyed;

  using Policy = CCmnContextSingletonAllocator<Shared>;
  using SharedHolder = CCmnSmartPtr<Shared, Policy>;
};

TEST(ContextSingletonAllocator, DefaultConstructionMakesNothing) {
  using Object = Shared<__LINE__>;
  const Object::SharedHolder holder;
  EXPECT_FALSE(static_cast<bool>(holder));
  EXPECT_EQ(Object::made, 0);
}

TEST(ContextSingletonAllocator, HandsOutOneInstanceUntilTheLastHolderLetsGo) {
  using Object = Shared<__LINE__>;
  {
    const Object::SharedHolder first = Object::SharedHolder::create();
    const Object::SharedHolder second = Object::SharedHolder::create();
    EXPECT_TRUE(static_cast<bool>(first));
    EXPECT_TRUE(first == second);
    EXPECT_EQ(first->getCount(), 2);
    EXPECT_EQ(Object::made, 1);
    EXPECT_EQ(Object::destroyed, 0);
  }
  EXPECT_EQ(Object::made, 1);
  EXPECT_EQ(Object::destroyed, 1);
  EXPECT_EQ(Object::countWhenDestroyed, 1);
}

TEST(ContextSingletonAllocator, MakesANewInstanceAfterTheLastHolderLetGo) {
  using Object = Shared<__LINE__>;
  { const Object::SharedHolder first = Object::SharedHolder::create(); }
  const Object::SharedHolder second = Object::SharedHolder::create();
  EXPECT_EQ(second->getCount(), 1);
  EXPECT_EQ(Object::made, 2);
  EXPECT_EQ(Object::destroyed, 1);
}

TEST(ContextSingletonAllocator, AllocatesTheSameInstanceWhileNobodyHoldsIt) {
  using Object = Shared<__LINE__>;
  Object* const object = Object::Policy::allocate();
  EXPECT_EQ(Object::Policy::allocate(), object);
  EXPECT_EQ(object->getCount(), 0);
  EXPECT_EQ(Object::made, 1);
  Object::Policy::destroy(object);
  EXPECT_EQ(Object::destroyed, 1);
}

TEST(ContextSingletonAllocator, KeepsTheInstanceWhenAnotherObjectIsDestroyed) {
  using Object = Shared<__LINE__>;
  const Object::SharedHolder instance = Object::SharedHolder::create();
  { const Object::SharedHolder foreign(new Object); }
  EXPECT_EQ(Object::destroyed, 1);
  EXPECT_EQ(Object::Policy::allocate(), instance.get());
  EXPECT_EQ(Object::made, 2);
}

TEST(ContextSingletonAllocator, DestroyingAForeignObjectFirstDoesNotMakeItTheInstance) {
  using Object = Shared<__LINE__>;
  { const Object::SharedHolder foreign(new Object); }
  EXPECT_EQ(Object::destroyed, 1);
  const Object::SharedHolder instance = Object::SharedHolder::create();
  EXPECT_EQ(Object::made, 2);
}

TEST(ContextSingletonAllocator, ForgetsTheInstanceBeforeItDeletesIt) {
  using Object = Shared<__LINE__>;
  Object* const old = Object::Policy::allocate();
  Object* renewed = nullptr;
  Object::whenDestroyed = [&renewed] { renewed = Object::Policy::allocate(); };
  { const Object::SharedHolder holder(old); }
  Object::whenDestroyed = nullptr;
  EXPECT_EQ(Object::made, 2);
  EXPECT_EQ(Object::Policy::allocate(), renewed);
  Object::Policy::destroy(renewed);
}

class Derived : public Shared<__LINE__> {
 public:
  ~Derived() override { derivedDestroyed = true; }
  inline static bool derivedDestroyed = false;
};

TEST(ContextSingletonAllocator, DestroysThroughTheVirtualDestructor) {
  { const Derived::SharedHolder holder(new Derived); }
  EXPECT_TRUE(Derived::derivedDestroyed);
}

TEST(ContextSingletonAllocator, SharesOneTraceLog) {
  using LogHolder = CCmnSmartPtr<CCmnTraceLog, CCmnContextSingletonAllocator<CCmnTraceLog>>;
  const LogHolder first = LogHolder::create();
  const LogHolder second = LogHolder::create();
  EXPECT_TRUE(static_cast<bool>(first));
  EXPECT_TRUE(first == second);
  EXPECT_EQ(first->getCount(), 2);
}

}  // namespace
