// A resizable set of bits, packed 64 to a word.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kv {

class BitArray {
 public:
  BitArray() = default;
  explicit BitArray(int n) { SetSize(n); }

  int GetSize() const { return size_; }
  // Grows or shrinks; new bits are clear. With keep false every bit is cleared.
  void SetSize(int n, bool keep = true);

  bool operator[](int i) const { return (words_[i >> 6] >> (i & 63)) & 1u; }
  void Set(int i) { words_[i >> 6] |= uint64_t{1} << (i & 63); }
  void Set(int i, bool v) { v ? Set(i) : Clear(i); }
  void Clear(int i) { words_[i >> 6] &= ~(uint64_t{1} << (i & 63)); }
  void SetAll();
  void ClearAll();
  int NumberSet() const;
  bool IsEmpty() const;  // no bit set
  bool AnyBitSet() const { return !IsEmpty(); }

  // Same-size operations; the result keeps this array's size.
  BitArray& operator|=(const BitArray& o);
  BitArray& operator&=(const BitArray& o);
  BitArray operator~() const;
  bool operator==(const BitArray& o) const;

  // Bits 64w to 64w + 63 as one word, bit i of the word for element 64w + i. Loops that split
  // their work on word boundaries write whole words, so no two of them share one.
  std::size_t NumWords() const { return words_.size(); }
  uint64_t Word(std::size_t w) const { return words_[w]; }
  void SetWord(std::size_t w, uint64_t bits) { words_[w] = bits; }  // no bits past the size

  // Calls f(i) for every set bit in ascending order.
  template <class F>
  void ForEachSet(F&& f) const {
    for (std::size_t w = 0; w < words_.size(); ++w) {
      uint64_t bits = words_[w];
      while (bits) {
        const int b = __builtin_ctzll(bits);
        f(static_cast<int>(w * 64 + b));
        bits &= bits - 1;
      }
    }
  }

 private:
  void ClearTail();
  std::vector<uint64_t> words_;
  int size_ = 0;
};

}  // namespace kv
