// Declarations-only stand-in: the sub-object command modes (objmode.h) as far as the KV Cache
// binding uses them. See ../README.md.
#pragma once

#include "max.h"

class MoveModBoxCMode : public CommandMode {
 public:
  MoveModBoxCMode(BaseObject* o, IObjParam* i);
  ~MoveModBoxCMode() override;
};
class RotateModBoxCMode : public CommandMode {
 public:
  RotateModBoxCMode(BaseObject* o, IObjParam* i);
  ~RotateModBoxCMode() override;
};
class UScaleModBoxCMode : public CommandMode {
 public:
  UScaleModBoxCMode(BaseObject* o, IObjParam* i);
  ~UScaleModBoxCMode() override;
};
class NUScaleModBoxCMode : public CommandMode {
 public:
  NUScaleModBoxCMode(BaseObject* o, IObjParam* i);
  ~NUScaleModBoxCMode() override;
};
class SquashModBoxCMode : public CommandMode {
 public:
  SquashModBoxCMode(BaseObject* o, IObjParam* i);
  ~SquashModBoxCMode() override;
};
class SelectModBoxCMode : public CommandMode {
 public:
  SelectModBoxCMode(BaseObject* o, IObjParam* i);
  ~SelectModBoxCMode() override;
};
