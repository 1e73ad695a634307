// Intrusive reference counting: the counting interface, the two owning
// pointer templates, and the template library's assertion.
//
// Objects that implement IRefCounted start with a count of 0. The pointers
// below add a reference when they take an object and release it when they
// let go; the Release that brings the count to 0 deletes the object.
// The pointers themselves take no lock: one pointer object is used by one
// thread at a time (as with std::shared_ptr), while the objects they point
// to decide whether their counting is thread-safe. The settings store's
// nodes count under the store's lock, so pointers to one node may live in
// many threads.

#ifndef MVTL_REFCOUNTEDPTR_H
#define MVTL_REFCOUNTEDPTR_H

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace mvtl {

// Reports a failed assertion and ends the process. Prints
// "<file>:<line>: failed assertion `<expression>'\n" to standard error,
// flushes it and calls abort(); it never returns.
[[noreturn]] inline void AssertionFailed(const char* file, unsigned line, const char* expression) {
  std::fprintf(stderr, "%s:%u: failed assertion `%s'\n", file, line, expression);
  std::fflush(stderr);
  std::abort();
}

// The line number that the out-parameter assertion of RefCountedPtr reports.
// It is fixed at 383, whatever line the check is on, so that scripts that
// watch for this abort can match the message.
constexpr unsigned kOutParameterAssertLine = 383;

// The counting interface. AddRef and Release return the new count;
// GetRefCount returns the current one. The Release that brings the count to
// 0 destroys the object through its virtual destructor.
class IRefCounted {
 public:
  virtual ~IRefCounted() {}
  virtual int AddRef() = 0;
  virtual int Release() = 0;
  virtual int GetRefCount() = 0;
};

// An owning pointer that standard containers can hold. It owns one
// reference to the object it points to (or is null).
//
// T needs AddRef() and Release(); for IRefCounted objects these are virtual.
template <class T>
class RefCountedPtr_STLSafe {
 public:
  RefCountedPtr_STLSafe() : ptr(nullptr) {}

  // Shares the other pointer's object: adds one reference.
  RefCountedPtr_STLSafe(const RefCountedPtr_STLSafe& other) : ptr(nullptr) { Assign(other.ptr); }

  // Releases the held reference, if any.
  virtual ~RefCountedPtr_STLSafe() {
    if (ptr != nullptr) {
      ptr->Release();
      ptr = nullptr;
    }
  }

  RefCountedPtr_STLSafe& operator=(const RefCountedPtr_STLSafe& other) {
    Assign(other.ptr);
    return *this;
  }

  // Makes this pointer own a reference to p (null allowed). The held
  // reference is released first, then p gets its new reference. Because the
  // release comes first, assigning the object that this pointer alone keeps
  // alive destroys it before the add-ref: never self-assign.
  void Assign(const T* p) const {
    if (ptr != nullptr) {
      ptr->Release();
      ptr = nullptr;
    }
    ptr = const_cast<T*>(p);
    if (ptr != nullptr) ptr->AddRef();
  }

  // The held object (null when empty). Ownership stays with this pointer.
  T* Get() const { return ptr; }
  T* operator->() const { return ptr; }
  T& operator*() const { return *ptr; }
  operator T*() const { return ptr; }

 protected:
  mutable T* ptr;
};

// The owning pointer for locals and members. In addition to the above, its
// address-of operator hands out the held pointer's address as a T** so that
// a factory can fill it with an object that already carries the caller's
// reference. The pointer must be null then; otherwise the held object would
// leak, and the process aborts with the "ptr == NULL" assertion.
template <class T>
class RefCountedPtr : public RefCountedPtr_STLSafe<T> {
 public:
  RefCountedPtr() {}

  // Takes p and adds a reference to it (it never adopts one).
  RefCountedPtr(const T* p) { this->Assign(p); }

  RefCountedPtr(const RefCountedPtr& other) : RefCountedPtr_STLSafe<T>() {
    this->Assign(other.Get());
  }

  RefCountedPtr& operator=(const RefCountedPtr& other) {
    this->Assign(other.Get());
    return *this;
  }

  // Lets a container element be assigned to an owning pointer.
  RefCountedPtr& operator=(const RefCountedPtr_STLSafe<T>& other) {
    this->Assign(other.Get());
    return *this;
  }

  // Takes p and adds a reference; null releases the held object.
  RefCountedPtr& operator=(const T* p) {
    this->Assign(p);
    return *this;
  }

  // Out-parameter access for factories; aborts unless the pointer is null.
  T** operator&() {
    if (this->ptr != nullptr) {
      AssertionFailed(__FILE__, kOutParameterAssertLine, "ptr == NULL");
    }
    return &this->ptr;
  }
};

}  // namespace mvtl

#endif  // MVTL_REFCOUNTEDPTR_H
