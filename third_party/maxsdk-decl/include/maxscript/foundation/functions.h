// Declarations-only stand-in: the value converter of maxscript/foundation/functions.h. See
// ../../../README.md.
#pragma once

#include "../maxscript.h"

class FPEnum;

#define VALUECONVERTER_INTERFACE_ID Interface_ID(0x19f37b9f, 0x39ed5680)

class ValueConverter : public FPInterfaceDesc {
 public:
  enum FPValueSubtype { SUBTYPE_NONE = 0, SUBTYPE_IROLLUPWINDOW };
  virtual void val_to_FPValue(Value* v, ParamType2 type, FPValue& fpv, FPEnum* e = nullptr) = 0;
  virtual Value* FPValue_to_val(FPValue& fpv, FPEnum* e = nullptr,
                                FPValueSubtype subtype = SUBTYPE_NONE) = 0;
};
