// An owning array of exactly its element count, for plain element types.
//
// The library hands byte buffers out through it (settings buffers) and uses
// it as scratch space. Data is null exactly when the count is 0; there is no
// separate capacity. A failed allocation is swallowed and leaves the buffer
// empty, so callers check GetCount() after sizing it.

#ifndef MVTL_MEMORYBUFFER_H
#define MVTL_MEMORYBUFFER_H

#include <cstddef>
#include <cstring>
#include <new>

namespace mvtl {

template <class T>
class MemoryBuffer {
 public:
  MemoryBuffer() : m_data(nullptr), m_count(0) {}

  // Frees the elements.
  virtual ~MemoryBuffer() { Reset(0, false); }

  MemoryBuffer(const MemoryBuffer&) = delete;             // use Copy()
  MemoryBuffer& operator=(const MemoryBuffer&) = delete;  // use Copy()

  // Makes the buffer hold `count` elements. The same count keeps the present
  // allocation and contents; another count frees them and allocates fresh,
  // uninitialised elements (none for 0). With `zero`, every element is then
  // set to zero bytes. If the allocation fails the buffer is left empty.
  void Reset(unsigned long count, bool zero) {
    if (count != m_count) {
      delete[] m_data;
      m_data = nullptr;
      m_count = 0;
      if (count != 0) {
        try {
          m_data = new T[count];
          m_count = count;
        } catch (const std::bad_alloc&) {
          // Leave the buffer empty; the caller sees a count of 0.
        }
      }
    }
    if (zero && m_data != nullptr) std::memset(m_data, 0, m_count * sizeof(T));
  }

  // Makes the buffer hold count + extra elements, the first `count` copied
  // from `source` (not read when count is 0). With `zeroExtra` the `extra`
  // elements after them are zeroed; otherwise they are left as they are.
  // If the buffer cannot be sized (allocation failure, or count + extra does
  // not fit in an unsigned long) it is left empty and nothing is copied.
  void Copy(const T* source, unsigned long count, unsigned long extra, bool zeroExtra) {
    const unsigned long total = count + extra;
    if (total < count) {  // wrapped around
      Reset(0, false);
      return;
    }
    Reset(total, false);
    if (m_count != total || total == 0) return;
    if (count != 0) std::memcpy(m_data, source, count * sizeof(T));
    if (zeroExtra) {
      // Zero bytes for every element (a loop the compiler turns into memset).
      for (unsigned long i = count; i < total; ++i) std::memset(&m_data[i], 0, sizeof(T));
    }
  }

  // The same as Copy(other.GetData(), other.GetCount(), extra, zeroExtra).
  void Copy(const MemoryBuffer<T>& other, unsigned long extra, bool zeroExtra) {
    if (&other == this) {
      // Resizing would free the source; keep the elements and size up.
      if (extra == 0) return;
      MemoryBuffer<T> saved;
      saved.Copy(other.m_data, other.m_count, 0, false);
      if (saved.m_count != m_count) {
        Reset(0, false);
        return;
      }
      Copy(saved.m_data, saved.m_count, extra, zeroExtra);
      return;
    }
    Copy(other.m_data, other.m_count, extra, zeroExtra);
  }

  // The elements (null when empty). The buffer keeps ownership.
  T* GetData() { return m_data; }
  T* GetData() const { return m_data; }

  // The number of elements (not bytes).
  unsigned long GetCount() const { return m_count; }

 private:
  T* m_data;
  unsigned long m_count;
};

}  // namespace mvtl

#endif  // MVTL_MEMORYBUFFER_H
