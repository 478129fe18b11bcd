// Declarations-only stand-in: the SDK's growable tables (tab.h, containers/Array.h) as far as
// the KV Cache binding uses them. See ../README.md.
#pragma once

#include <cstddef>

template <class T>
class Tab {
 public:
  Tab();
  ~Tab();
  int Count() const;
  void SetCount(int n, bool resize = true);
  int Append(int num, T* el, int allocExtra = 0);
  T& operator[](const int i) const;
  void ZeroCount();

 private:
  T* th_;
};

namespace MaxSDK {
template <class T>
class Array {
 public:
  Array();
  ~Array();
  size_t length() const;
  T& operator[](size_t i);
  const T& operator[](size_t i) const;

 private:
  T* data_;
};
}  // namespace MaxSDK

// Bodies for the stand-in only: 3ds Max's own headers define these templates inline.
template <class T>
Tab<T>::Tab() : th_(nullptr) {}
template <class T>
Tab<T>::~Tab() {}
template <class T>
int Tab<T>::Count() const {
  return 0;
}
template <class T>
void Tab<T>::SetCount(int, bool) {}
template <class T>
int Tab<T>::Append(int, T*, int) {
  return 0;
}
template <class T>
T& Tab<T>::operator[](const int i) const {
  return th_[i];
}
template <class T>
void Tab<T>::ZeroCount() {}
template <class T>
MaxSDK::Array<T>::Array() : data_(nullptr) {}
template <class T>
MaxSDK::Array<T>::~Array() {}
template <class T>
size_t MaxSDK::Array<T>::length() const {
  return 0;
}
template <class T>
T& MaxSDK::Array<T>::operator[](size_t i) {
  return data_[i];
}
template <class T>
const T& MaxSDK::Array<T>::operator[](size_t i) const {
  return data_[i];
}
