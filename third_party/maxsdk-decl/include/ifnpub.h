// Declarations-only stand-in: function publishing (ifnpub.h, paramtype.h) as far as the
// KV Cache binding uses it: descriptors built member by member, the mixin interface and its
// dispatcher, and the values that cross it. See ../README.md.
#pragma once

#include "baseinterface.h"
#include "bitarray.h"
#include "iparamb2.h"
#include "max.h"
#include "tab.h"

typedef int FunctionID;
typedef short EnumID;
typedef int FPStatus;

#define FP_NO_FUNCTION ((FunctionID)-1)
#define FP_NO_ENUM ((EnumID)-1)

#define FPS_FAIL 0
#define FPS_NO_SUCH_FUNCTION -1
#define FPS_ACTION_DISABLED -2
#define FPS_OK 1

// Interface descriptor flags.
#define FP_ACTIONS 0x0001
#define FP_MIXIN 0x0002
#define FP_CORE 0x0004
#define FP_STATIC_METHODS 0x0008

// Function (FP_) and parameter (FPP_) definition flags. The reference names them and says what
// they mean; their values here are the ones the binding was written against, and a build with
// the real SDK takes the SDK's own.
#define FP_HAS_KEYARGS 0x0020
#define FPP_KEYARG 0x0010

// Parameter type modifiers (paramtype.h).
#define TYPE_BY_REF 0x1000
#define TYPE_BY_VAL 0x2000
#define TYPE_BY_PTR 0x4000

class Value;
class FPInterfaceDesc;
class FPParams;
class FPValue;
class FPValidator;

class FPInterface : public BaseInterface {
 public:
  virtual FPInterfaceDesc* GetDesc() = 0;

 protected:
  virtual FPStatus _dispatch_fn(FunctionID fid, TimeValue t, FPValue& result, FPParams* p);
};

class FPMixinInterface : public FPInterface {
 public:
  FPMixinInterface();
  ~FPMixinInterface() override;
};

class FPValue {
 public:
  FPValue();
  ~FPValue();
  void Free();
  void Init();

  ParamType2 type;
  union {
    int i;
    float f;
    DWORD d;
    bool b;
    TimeValue t;
    const MCHAR* s;
    MSTR* tstr;
    INode* n;
    Control* ctrl;
    BitArray* bits;
    Interval* intvl;
    Value* v;
    Tab<FPValue*>* fpv_tab;
    void* ptr;
  };
};

class FPParams {
 public:
  FPParams();
  ~FPParams();
  MaxSDK::Array<FPValue> params;
};

class FPParamOptions {
 public:
  FPParamOptions();
  ~FPParamOptions();
  FPValue range_low;
  FPValue range_high;
  FPValidator* validator;
  FPValue keyarg_default;
};

class FPParamDef {
 public:
  FPParamDef();
  ~FPParamDef();
  DWORD cbStruct;
  MSTR internal_name;
  StringResID description;
  ParamType2 type;
  EnumID enumID;
  USHORT flags;
  FPParamOptions* options;
};

class FPFunctionDef {
 public:
  FPFunctionDef();
  ~FPFunctionDef();
  DWORD cbStruct;
  FunctionID ID;
  MSTR internal_name;
  StringResID description;
  USHORT flags;
  ParamType2 result_type;
  EnumID enumID;
  Tab<FPParamDef*> params;
  short keyparms;
};

class FPPropDef {
 public:
  FPPropDef();
  ~FPPropDef();
  DWORD cbStruct;
  FunctionID getter_ID;
  FunctionID setter_ID;
  MSTR internal_name;
  StringResID description;
  DWORD flags;
  ParamType2 prop_type;
  EnumID enumID;
  FPParamDef* setter_param;
  FPParamOptions* options;
};

class FPInterfaceDesc : public FPInterface {
 public:
  FPInterfaceDesc();
  FPInterfaceDesc(Interface_ID id, const MCHAR* int_name, StringResID descr, ClassDesc* cd,
                  ULONG flag, ...);
  ~FPInterfaceDesc() override;
  FPInterfaceDesc* GetDesc() override { return this; }
  Interface_ID GetID() override { return ID; }
  void SetClassDesc(ClassDesc* i_cd);

  Interface_ID ID;
  MSTR internal_name;
  StringResID description;
  ClassDesc* cd;
  USHORT flags;
  Tab<FPFunctionDef*> functions;
  Tab<FPPropDef*> props;
};

FPInterface* GetCOREInterface(Interface_ID id);
