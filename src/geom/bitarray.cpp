#include "geom/bitarray.h"

#include <algorithm>
#include <bit>

namespace kv {

void BitArray::SetSize(int n, bool keep) {
  size_ = std::max(n, 0);
  if (!keep) words_.clear();
  words_.resize((static_cast<size_t>(size_) + 63) / 64, 0);
  // Bits past the end are always clear, so growing later exposes only clear bits.
  ClearTail();
}

void BitArray::SetAll() {
  std::fill(words_.begin(), words_.end(), ~uint64_t{0});
  ClearTail();
}

void BitArray::ClearAll() {
  std::fill(words_.begin(), words_.end(), 0);
}

int BitArray::NumberSet() const {
  int n = 0;
  for (uint64_t w : words_) n += std::popcount(w);
  return n;
}

bool BitArray::IsEmpty() const {
  return std::all_of(words_.begin(), words_.end(), [](uint64_t w) { return w == 0; });
}

BitArray& BitArray::operator|=(const BitArray& o) {
  const size_t n = std::min(words_.size(), o.words_.size());
  for (size_t i = 0; i < n; ++i) words_[i] |= o.words_[i];
  ClearTail();
  return *this;
}

BitArray& BitArray::operator&=(const BitArray& o) {
  const size_t n = std::min(words_.size(), o.words_.size());
  for (size_t i = 0; i < n; ++i) words_[i] &= o.words_[i];
  std::fill(words_.begin() + static_cast<std::ptrdiff_t>(n), words_.end(), 0);
  return *this;
}

BitArray BitArray::operator~() const {
  BitArray r = *this;
  for (uint64_t& w : r.words_) w = ~w;
  r.ClearTail();
  return r;
}

bool BitArray::operator==(const BitArray& o) const {
  return size_ == o.size_ && words_ == o.words_;
}

void BitArray::ClearTail() {
  if (const int used = size_ & 63; used != 0 && !words_.empty())
    words_.back() &= (uint64_t{1} << used) - 1;
}

}  // namespace kv
