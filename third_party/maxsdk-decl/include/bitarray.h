// Declarations-only stand-in: the SDK's bit array (bitarray.h) as far as the KV Cache binding
// uses it. See ../README.md.
#pragma once

class BitArray {
 public:
  BitArray();
  explicit BitArray(int n);
  ~BitArray();
  void SetSize(int n, int save = 0);
  int GetSize() const;
  void Set(int i);
  int operator[](int i) const;

 private:
  void* bits_;
  int size_;
};
