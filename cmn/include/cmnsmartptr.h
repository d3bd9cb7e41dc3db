/**
 * @file cmnsmartptr.h
 * @brief The holder of counted objects and its allocator policies.
 */
#ifndef CMNSMARTPTR_H
#define CMNSMARTPTR_H

#include "cmnexport.h"
#include "cmnrefcount.h"

namespace kelp_cmn_4_4 {

/**
 * Holds a counted object, or nothing, and keeps the object's count.
 *
 * Each full holder counts as one use. To let go, a holder calls decrement(); if that gives 0 it
 * calls increment() once more, so that the count reads 1 while the object is destroyed and a
 * temporary holder made on it meanwhile cannot destroy it a second time, and then hands the object
 * to `Alloc::destroy`.
 *
 * Not safe across threads, as the count is not. Copying is the only way to pass a holder on; there
 * is no move.
 *
 * @tparam T      derives from CCmnRefCount, directly or virtually; may be abstract
 * @tparam Alloc  the policy: `static T* allocate()` obtains an object, `static void destroy(T*)`
 *                gives it back
 */
template <class T, class Alloc>
class CCmnSmartPtr {
 public:
  /** An empty holder. No object is made, whatever the policy. */
  CCmnSmartPtr() : m_object(nullptr) {}

  /**
   * Takes a share in an object.
   * @param object  a heap object that the policy can give back; null for an empty holder. An object
   *                that counted 0 belongs to its holders from here on.
   */
  CCmnSmartPtr(T* object) : m_object(nullptr) { hold(object); }

  /** Takes a share in what `other` holds. */
  CCmnSmartPtr(const CCmnSmartPtr& other) : m_object(nullptr) { hold(other.m_object); }

  /** Lets go. */
  ~CCmnSmartPtr() { release(); }

  /**
   * Lets go of what is held, then takes a share in what `other` held when the call began. Assigning
   * a holder to itself does nothing.
   * @warning The new object must not be kept alive only by the object being let go: where `head`
   *          holds the last share of a list's first element, `head = head->next` uses what has been
   *          destroyed. Copy `other` first, and assign the copy.
   */
  CCmnSmartPtr& operator=(const CCmnSmartPtr& other) {
    if (this != &other) {
      T* const object = other.m_object;
      // Deliberate: the old object is gone before the new share is taken. It may have to give up
      // what the new one is waiting for.
      release();
      hold(object);
    }
    return *this;
  }

  /** A holder of what the policy's allocate() gives; empty if that is null. */
  static CCmnSmartPtr create() { return CCmnSmartPtr(Alloc::allocate()); }

  /** The object. Undefined on an empty holder. */
  T* operator->() const { return m_object; }

  /** The object. Undefined on an empty holder. */
  T& operator*() const { return *m_object; }

  /** The object, which stays the holders'; null for an empty holder. */
  T* get() const { return m_object; }

  /** Whether an object is held: `if (holder)`, `if (!holder)`. */
  explicit operator bool() const { return m_object != nullptr; }

 private:
  void hold(T* object) {
    m_object = object;
    if (m_object != nullptr) {
      m_object->increment();
    }
  }

  void release() {
    if (m_object == nullptr) {
      return;
    }
    if (m_object->decrement() == 0) {
      // Deliberate: counts 1 meanwhile, lest a holder made by the destructor destroy it once more.
      m_object->increment();
      Alloc::destroy(m_object);
    }
    m_object = nullptr;
  }

  T* m_object;
};

/**
 * Whether two holders hold the same object, or none. Holders compare with holders of their own type
 * only, neither with pointers nor with null: write `if (!holder)`, or compare get().
 */
template <class T, class Alloc>
bool operator==(const CCmnSmartPtr<T, Alloc>& first, const CCmnSmartPtr<T, Alloc>& second) {
  return first.get() == second.get();
}

/** Whether two holders hold different objects. What compares is as for `==`. */
template <class T, class Alloc>
bool operator!=(const CCmnSmartPtr<T, Alloc>& first, const CCmnSmartPtr<T, Alloc>& second) {
  return !(first == second);
}

/** The policy for objects that somebody else makes with `new`: it makes none itself. */
template <class T>
class CCmnNullAllocator {
 public:
  /** Gives null. */
  static T* allocate() { return nullptr; }

  /** Deletes the object through its virtual destructor. */
  static void destroy(T* object) { delete object; }
};

/**
 * The policy for an object that the whole process shares.
 *
 * Of each of the library's own classes the process has one instance, whichever of its shared
 * objects ask, those opened with `dlopen` included. Of a `T` of the host's own the program and each
 * of the shared objects may have one each. They share one if `T` is visible outside and the policy
 * is instantiated in one shared object that all the others are linked with:
 *
 * @code
 * // in the header, below T, outside any namespace
 * extern template class kelp_cmn_4_4::CCmnContextSingletonAllocator<T>;
 * // in one source of that shared object
 * template class kelp_cmn_4_4::CCmnContextSingletonAllocator<T>;
 * @endcode
 *
 * Without that, the program itself must use the policy for the visible `T`, and be linked with
 * `-rdynamic` (CMake: the property `ENABLE_EXPORTS`).
 *
 * Not safe across threads.
 *
 * @tparam T  has a default constructor
 */
template <class T>
class KELP_CMN_API CCmnContextSingletonAllocator {
 public:
  /**
   * Gives the one instance.
   * @return the instance, made with `new T` if there is none: on first need, and after the last
   *         holder let the old one go. It belongs to the holders it is put into, which must have
   *         this policy: another would delete it, and leave its address here.
   */
  static T* allocate() {
    if (m_instance == nullptr) {
      m_instance = new T;
    }
    return m_instance;
  }

  /**
   * Deletes an object through its virtual destructor.
   * @param object  if it is the instance, the next allocate() makes a new one, even one that is
   *                called from the destructor; any other object leaves the instance as it is
   */
  static void destroy(T* object) {
    if (object == m_instance) {
      m_instance = nullptr;
    }
    delete object;
  }

 private:
  static T* m_instance;
};

// Not inline: an explicit instantiation declaration could not keep an inline variable in
// one library.
template <class T>
T* CCmnContextSingletonAllocator<T>::m_instance = nullptr;

/** The instantiation for a bare count is the library's, as those of its other counted classes. */
extern template class KELP_CMN_API CCmnContextSingletonAllocator<CCmnRefCount>;

}  // namespace kelp_cmn_4_4

#endif
