// The counting that the store's counted objects share (nodes, cached files,
// in-memory dictionaries): a plain signed count right after the interface,
// born at 0, and a Release that deletes the object when the count reaches 0.

#ifndef MORVSETTINGS_REFCOUNTEDOBJECT_H
#define MORVSETTINGS_REFCOUNTEDOBJECT_H

namespace mvcs {

// Implements AddRef, Release and GetRefCount of `Interface` (which derives
// from mvtl::IRefCounted). Not thread-safe, by design: counts are plain.
template <class Interface>
class RefCountedObject : public Interface {
 public:
  RefCountedObject() : m_refCount(0) {}

  int AddRef() override { return ++m_refCount; }

  int Release() override {
    const int count = --m_refCount;
    if (count > 0) return count;
    delete this;
    return 0;
  }

  int GetRefCount() override { return m_refCount; }

 private:
  int m_refCount;
};

}  // namespace mvcs

#endif  // MORVSETTINGS_REFCOUNTEDOBJECT_H
