// Reference counting and the two owning pointers: counts, ownership
// transfer, release-before-add-ref and the out-parameter assertion.

#include "mvtl/RefCountedPtr.h"

#include <gtest/gtest.h>

#include <csignal>
#include <list>
#include <map>
#include <string>
#include <vector>

namespace {

// Counts exactly as the library's counted objects do: born at 0, deleted by
// the Release that leaves the count at 0 or below.
class Counted : public mvtl::IRefCounted {
 public:
  explicit Counted(int* destroyed) : m_refCount(0), m_destroyed(destroyed) {}
  ~Counted() override { ++*m_destroyed; }
  int AddRef() override { return ++m_refCount; }
  int Release() override;
  int GetRefCount() override { return m_refCount; }

 private:
  int m_refCount;
  int* m_destroyed;
};

// Out of line, as in the library's classes (inlined, "delete this" makes
// GCC 12 warn about later calls it cannot prove happen on a live object).
[[gnu::noinline]] int Counted::Release() {
  const int count = --m_refCount;
  if (count > 0) return count;
  delete this;
  return 0;
}

// Not heap-allocated and never freed: its Release records events instead,
// and "destroys" by marking itself, so the order of calls can be observed
// even when a pointer goes on to use an object it has destroyed.
class EventRecorder {
 public:
  explicit EventRecorder(int count) : m_refCount(count) {}
  int AddRef() {
    events.push_back(destroyed ? "add-ref after destruction" : "add-ref");
    return ++m_refCount;
  }
  int Release() {
    const int count = --m_refCount;
    if (count > 0) {
      events.push_back("release");
      return count;
    }
    events.push_back("release and destroy");
    destroyed = true;
    return 0;
  }
  std::vector<std::string> events;
  bool destroyed = false;

 private:
  int m_refCount;
};

// A factory in the style of the library's: fills `out` with a new object
// that carries one reference for the caller.
bool MakeCounted(int* destroyed, Counted** out) {
  Counted* object = new Counted(destroyed);
  object->AddRef();
  *out = object;
  return true;
}

TEST(RefCounting, FreshObjectHasCountZeroAndLastReleaseDestroysIt) {
  int destroyed = 0;
  Counted* object = new Counted(&destroyed);
  EXPECT_EQ(object->GetRefCount(), 0);
  EXPECT_EQ(object->AddRef(), 1);
  EXPECT_EQ(object->GetRefCount(), 1);
  EXPECT_EQ(object->Release(), 0);
  EXPECT_EQ(destroyed, 1);
}

TEST(RefCounting, ReleaseFromThreeReturnsTwoAndKeepsObject) {
  int destroyed = 0;
  Counted* object = new Counted(&destroyed);
  object->AddRef();
  object->AddRef();
  object->AddRef();
  EXPECT_EQ(object->Release(), 2);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(object->GetRefCount(), 2);
  object->Release();
  object->Release();
  EXPECT_EQ(destroyed, 1);
}

TEST(RefCountedPtr, ConstructionFromRawPointerAddsReference) {
  int destroyed = 0;
  Counted* object = new Counted(&destroyed);
  {
    mvtl::RefCountedPtr<Counted> ptr(object);
    EXPECT_EQ(object->GetRefCount(), 1);
    EXPECT_EQ(ptr.Get(), object);
    mvtl::RefCountedPtr<Counted> copy(ptr);
    EXPECT_EQ(object->GetRefCount(), 2);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(RefCountedPtr, AssigningRawPointerAddsReferenceAndNeverAdopts) {
  int destroyed = 0;
  Counted* object = new Counted(&destroyed);
  object->AddRef();  // the test's own reference
  {
    mvtl::RefCountedPtr<Counted> ptr;
    ptr = object;
    EXPECT_EQ(object->GetRefCount(), 2);
  }
  EXPECT_EQ(object->GetRefCount(), 1);
  EXPECT_EQ(destroyed, 0);
  object->Release();
  EXPECT_EQ(destroyed, 1);
}

TEST(RefCountedPtr, AssigningNullReleasesAndLeavesNull) {
  int destroyed = 0;
  mvtl::RefCountedPtr_STLSafe<Counted> ptr;
  ptr.Assign(new Counted(&destroyed));
  EXPECT_EQ(ptr->GetRefCount(), 1);
  ptr.Assign(nullptr);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(ptr.Get(), nullptr);

  mvtl::RefCountedPtr<Counted> owning(new Counted(&destroyed));
  owning = static_cast<const Counted*>(nullptr);
  EXPECT_EQ(destroyed, 2);
  EXPECT_EQ(owning.Get(), nullptr);
}

TEST(RefCountedPtr, AssignReleasesOldBeforeAddingNew) {
  EventRecorder first(1), second(1);
  mvtl::RefCountedPtr_STLSafe<EventRecorder> ptr;
  ptr.Assign(&first);
  first.events.clear();
  ptr.Assign(&second);
  EXPECT_EQ(first.events, std::vector<std::string>({"release"}));
  EXPECT_EQ(second.events, std::vector<std::string>({"add-ref"}));
}

TEST(RefCountedPtr, SelfAssignOfOnlyReferenceDestroysBeforeAddRef) {
  EventRecorder object(0);
  mvtl::RefCountedPtr_STLSafe<EventRecorder> ptr;
  ptr.Assign(&object);  // the only reference
  object.events.clear();
  ptr.Assign(ptr.Get());
  EXPECT_EQ(object.events,
            std::vector<std::string>({"release and destroy", "add-ref after destruction"}));
  EXPECT_TRUE(object.destroyed);
  EXPECT_EQ(ptr.Get(), &object);  // left pointing at the destroyed object
}

TEST(RefCountedPtr, SelfAssignWithAnotherOwnerKeepsObject) {
  int destroyed = 0;
  mvtl::RefCountedPtr<Counted> a(new Counted(&destroyed));
  mvtl::RefCountedPtr<Counted> b(a);
  a = b;
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(a->GetRefCount(), 2);
}

TEST(RefCountedPtr, DestroyingNullPointerDoesNothing) {
  EventRecorder untouched(1);
  { mvtl::RefCountedPtr<EventRecorder> ptr; }
  { mvtl::RefCountedPtr_STLSafe<EventRecorder> ptr; }
  EXPECT_TRUE(untouched.events.empty());
}

TEST(RefCountedPtr, OutParameterReceivesFactoryReference) {
  int destroyed = 0;
  {
    mvtl::RefCountedPtr<Counted> ptr;
    ASSERT_TRUE(MakeCounted(&destroyed, &ptr));
    ASSERT_NE(ptr.Get(), nullptr);
    EXPECT_EQ(ptr->GetRefCount(), 1);  // the factory's reference, adopted
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(RefCountedPtr, ContainersHoldTheStlSafeKind) {
  int destroyed = 0;
  mvtl::RefCountedPtr<Counted> owner(new Counted(&destroyed));
  {
    std::list<mvtl::RefCountedPtr_STLSafe<Counted>> list;
    std::map<std::string, mvtl::RefCountedPtr_STLSafe<Counted>> map;
    mvtl::RefCountedPtr_STLSafe<Counted> element;
    element.Assign(owner.Get());
    list.push_back(element);
    map["key"] = element;
    EXPECT_EQ(owner->GetRefCount(), 4);
    mvtl::RefCountedPtr<Counted> fromElement;
    fromElement = map["key"];
    EXPECT_EQ(owner->GetRefCount(), 5);
  }
  EXPECT_EQ(owner->GetRefCount(), 1);
  EXPECT_EQ(destroyed, 0);
}

TEST(RefCountedPtrDeathTest, OutParameterOfNonNullPointerAborts) {
  int destroyed = 0;
  mvtl::RefCountedPtr<Counted> ptr(new Counted(&destroyed));
  EXPECT_EXIT(
      {
        Counted** out = &ptr;
        (void)out;
      },
      ::testing::KilledBySignal(SIGABRT),
      "^[^\n]*include/mvtl/RefCountedPtr\\.h:383: failed assertion `ptr == NULL'\n$");
}

TEST(RefCountedPtrDeathTest, AssertionPrintsFileLineAndExpression) {
  EXPECT_EXIT(mvtl::AssertionFailed("some/file.h", 12, "x != 0"),
              ::testing::KilledBySignal(SIGABRT),
              "^some/file\\.h:12: failed assertion `x != 0'\n$");
}

}  // namespace
