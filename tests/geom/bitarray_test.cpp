#include "geom/bitarray.h"

#include <gtest/gtest.h>

#include <vector>

namespace kv {
namespace {

std::vector<int> SetBits(const BitArray& b) {
  std::vector<int> v;
  b.ForEachSet([&v](int i) { v.push_back(i); });
  return v;
}

TEST(BitArray, WordBoundariesAndTheUnusedTail) {
  for (int n : {0, 1, 63, 64, 65, 127, 128, 130}) {
    BitArray b(n);
    EXPECT_TRUE(b.IsEmpty()) << n;
    b.SetAll();
    EXPECT_EQ(b.NumberSet(), n) << n;
    // Inverting must not turn on the bits past the end of the last word.
    EXPECT_EQ((~b).NumberSet(), 0) << n;
    EXPECT_EQ((~BitArray(n)).NumberSet(), n) << n;
    EXPECT_EQ(~~b, b) << n;
    // Growing exposes only clear bits, even after SetAll filled the last word.
    b.SetSize(n + 70);
    EXPECT_EQ(b.NumberSet(), n) << n;
    EXPECT_FALSE(b[n]) << n;
    EXPECT_EQ(SetBits(b).size(), static_cast<size_t>(n));
  }
}

TEST(BitArray, ResizeKeepsOrClears) {
  BitArray b(200);
  b.Set(3);
  b.Set(64);
  b.Set(150);
  b.SetSize(100);  // drops 150
  EXPECT_EQ(SetBits(b), (std::vector<int>{3, 64}));
  b.SetSize(200);  // 150 does not come back
  EXPECT_EQ(SetBits(b), (std::vector<int>{3, 64}));
  b.SetSize(10, false);
  EXPECT_EQ(b.GetSize(), 10);
  EXPECT_TRUE(b.IsEmpty());
  b.SetSize(-5);
  EXPECT_EQ(b.GetSize(), 0);
}

TEST(BitArray, SetOperationsAndEquality) {
  BitArray a(70), b(70);
  a.Set(1), a.Set(65);
  b.Set(65), b.Set(69, true);
  BitArray o = a;
  o |= b;
  EXPECT_EQ(SetBits(o), (std::vector<int>{1, 65, 69}));
  BitArray n = a;
  n &= b;
  EXPECT_EQ(SetBits(n), (std::vector<int>{65}));
  EXPECT_TRUE(n.AnyBitSet());
  n.Set(65, false);
  EXPECT_TRUE(n.IsEmpty());
  EXPECT_FALSE(a == b);
  EXPECT_FALSE(BitArray(70) == BitArray(71));  // same bits, different size
  // A larger operand cannot push bits past this array's end.
  BitArray big(128);
  big.SetAll();
  BitArray small(70);
  small |= big;
  EXPECT_EQ(small.NumberSet(), 70);
  BitArray tail(128);
  tail.SetAll();
  tail &= BitArray(70);
  EXPECT_TRUE(tail.IsEmpty());
}

}  // namespace
}  // namespace kv
