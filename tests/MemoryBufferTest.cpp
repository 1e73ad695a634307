// MemoryBuffer: sizing, zeroing, copying, and allocation failures.

#include "mvtl/MemoryBuffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <new>

namespace {

// An element whose array allocations are counted and filled with 0xAB, so
// tests can tell a fresh allocation from a kept one.
struct Marked {
  unsigned char value;
  static int allocations;
  static void* operator new[](std::size_t size) {
    ++allocations;
    void* memory = ::operator new[](size);
    std::memset(memory, 0xAB, size);
    return memory;
  }
  static void operator delete[](void* memory) { ::operator delete[](memory); }
};
int Marked::allocations = 0;

TEST(MemoryBuffer, DefaultIsEmpty) {
  mvtl::MemoryBuffer<unsigned char> buffer;
  EXPECT_EQ(buffer.GetData(), nullptr);
  EXPECT_EQ(buffer.GetCount(), 0ul);
}

TEST(MemoryBuffer, ResetSameCountWithZeroKeepsAllocationAndZeroes) {
  mvtl::MemoryBuffer<Marked> buffer;
  buffer.Reset(4, false);
  Marked* data = buffer.GetData();
  ASSERT_NE(data, nullptr);
  for (int i = 0; i < 4; ++i) data[i].value = static_cast<unsigned char>(i + 1);
  const int allocations = Marked::allocations;
  buffer.Reset(4, true);
  EXPECT_EQ(buffer.GetData(), data);
  EXPECT_EQ(Marked::allocations, allocations);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(buffer.GetData()[i].value, 0);
}

TEST(MemoryBuffer, ResetSameCountWithoutZeroChangesNothing) {
  mvtl::MemoryBuffer<Marked> buffer;
  buffer.Reset(3, false);
  Marked* data = buffer.GetData();
  ASSERT_NE(data, nullptr);
  for (int i = 0; i < 3; ++i) data[i].value = static_cast<unsigned char>(10 + i);
  const int allocations = Marked::allocations;
  buffer.Reset(3, false);
  EXPECT_EQ(buffer.GetData(), data);
  EXPECT_EQ(buffer.GetCount(), 3ul);
  EXPECT_EQ(Marked::allocations, allocations);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(buffer.GetData()[i].value, 10 + i);
}

TEST(MemoryBuffer, ResetOtherCountDiscardsOldContents) {
  mvtl::MemoryBuffer<Marked> buffer;
  buffer.Reset(3, false);
  for (int i = 0; i < 3; ++i) buffer.GetData()[i].value = 0x11;
  const int allocations = Marked::allocations;
  buffer.Reset(5, false);
  EXPECT_EQ(buffer.GetCount(), 5ul);
  EXPECT_EQ(Marked::allocations, allocations + 1);
  // Fresh elements as the allocation left them: nothing carried over.
  for (int i = 0; i < 5; ++i) EXPECT_EQ(buffer.GetData()[i].value, 0xAB);
}

TEST(MemoryBuffer, ResetZeroEmpties) {
  mvtl::MemoryBuffer<char> buffer;
  buffer.Reset(8, false);
  buffer.Reset(0, true);
  EXPECT_EQ(buffer.GetData(), nullptr);
  EXPECT_EQ(buffer.GetCount(), 0ul);
}

TEST(MemoryBuffer, WideResetZeroFillsFourBytesPerElement) {
  mvtl::MemoryBuffer<wchar_t> buffer;
  buffer.Reset(3, false);
  for (int i = 0; i < 3; ++i) buffer.GetData()[i] = static_cast<wchar_t>(0x7FFFFFFF);
  buffer.Reset(3, true);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(buffer.GetData()[i], 0);
}

TEST(MemoryBuffer, CopyFiveWithOneZeroedExtraGivesSix) {
  const unsigned char source[5] = {1, 2, 3, 4, 5};
  mvtl::MemoryBuffer<unsigned char> buffer;
  buffer.Copy(source, 5, 1, true);
  ASSERT_EQ(buffer.GetCount(), 6ul);
  const unsigned char expected[6] = {1, 2, 3, 4, 5, 0};
  EXPECT_EQ(std::memcmp(buffer.GetData(), expected, 6), 0);
}

TEST(MemoryBuffer, CopyExtraNotZeroedKeepsContentsWhenSizeUnchanged) {
  const char source[2] = {'a', 'b'};
  mvtl::MemoryBuffer<char> buffer;
  buffer.Reset(4, false);
  std::memcpy(buffer.GetData(), "wxyz", 4);
  buffer.Copy(source, 2, 2, false);
  ASSERT_EQ(buffer.GetCount(), 4ul);
  EXPECT_EQ(std::memcmp(buffer.GetData(), "abyz", 4), 0);
}

TEST(MemoryBuffer, CopyNothingGivesEmptyAndReadsNothing) {
  mvtl::MemoryBuffer<unsigned char> buffer;
  buffer.Reset(7, false);
  buffer.Copy(static_cast<const unsigned char*>(nullptr), 0, 0, false);
  EXPECT_EQ(buffer.GetData(), nullptr);
  EXPECT_EQ(buffer.GetCount(), 0ul);
}

TEST(MemoryBuffer, CopyFromBufferGivesExactlyItsBytes) {
  const unsigned char bytes[3] = {0xDE, 0xAD, 0x01};
  mvtl::MemoryBuffer<unsigned char> source;
  source.Copy(bytes, 3, 0, false);
  mvtl::MemoryBuffer<unsigned char> target;
  target.Reset(10, true);
  target.Copy(source, 0, false);
  ASSERT_EQ(target.GetCount(), 3ul);
  EXPECT_EQ(std::memcmp(target.GetData(), bytes, 3), 0);
  EXPECT_NE(target.GetData(), source.GetData());
}

TEST(MemoryBuffer, CopyFromItselfKeepsContents) {
  const unsigned char bytes[2] = {7, 8};
  mvtl::MemoryBuffer<unsigned char> buffer;
  buffer.Copy(bytes, 2, 0, false);
  buffer.Copy(buffer, 0, false);
  ASSERT_EQ(buffer.GetCount(), 2ul);
  buffer.Copy(buffer, 1, true);
  ASSERT_EQ(buffer.GetCount(), 3ul);
  const unsigned char expected[3] = {7, 8, 0};
  EXPECT_EQ(std::memcmp(buffer.GetData(), expected, 3), 0);
}

TEST(MemoryBuffer, FailedAllocationLeavesBufferEmpty) {
  // ULONG_MAX / 2 wide characters cannot be allocated: the array size
  // overflows, and new[] throws before asking for memory.
  mvtl::MemoryBuffer<wchar_t> buffer;
  buffer.Reset(4, true);
  buffer.Reset(ULONG_MAX / 2, false);
  EXPECT_EQ(buffer.GetData(), nullptr);
  EXPECT_EQ(buffer.GetCount(), 0ul);
}

TEST(MemoryBuffer, CopyAfterFailedAllocationCopiesNothing) {
  const wchar_t source[2] = {L'a', L'b'};
  mvtl::MemoryBuffer<wchar_t> buffer;
  buffer.Copy(source, 2, ULONG_MAX / 2, true);
  EXPECT_EQ(buffer.GetData(), nullptr);
  EXPECT_EQ(buffer.GetCount(), 0ul);
}

TEST(MemoryBuffer, CopyWhoseTotalWrapsAroundCopiesNothing) {
  const unsigned char source[3] = {1, 2, 3};
  mvtl::MemoryBuffer<unsigned char> buffer;
  buffer.Reset(2, false);
  buffer.Copy(source, 3, ULONG_MAX - 1, true);
  EXPECT_EQ(buffer.GetData(), nullptr);
  EXPECT_EQ(buffer.GetCount(), 0ul);
}

TEST(MemoryBuffer, ConstAccessorsGiveTheSameData) {
  mvtl::MemoryBuffer<char> buffer;
  buffer.Reset(2, true);
  const mvtl::MemoryBuffer<char>& view = buffer;
  char* data = view.GetData();
  EXPECT_EQ(data, buffer.GetData());
  EXPECT_EQ(view.GetCount(), 2ul);
}

}  // namespace
