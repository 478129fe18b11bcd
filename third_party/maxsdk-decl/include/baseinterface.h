// Declarations-only stand-in: interface ids and the interface base (baseinterface.h, maxtypes.h)
// as far as the KV Cache binding uses them. See ../README.md.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

class Interface_ID {
 public:
  Interface_ID() : a(0xFFFFFFFF), b(0xFFFFFFFF) {}
  Interface_ID(ULONG aa, ULONG bb) : a(aa), b(bb) {}
  ULONG PartA() const { return a; }
  ULONG PartB() const { return b; }
  int operator==(const Interface_ID& id) const { return a == id.a && b == id.b; }
  int operator!=(const Interface_ID& id) const { return !(*this == id); }

 private:
  ULONG a, b;
};

class BaseInterface {
 public:
  virtual ~BaseInterface();
  virtual Interface_ID GetID();
};
