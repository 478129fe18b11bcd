// Declarations-only stand-in: class descriptors and parameter block descriptors (plugapi.h,
// iparamb2.h, paramtype.h) as far as the KV Cache binding uses them. See ../README.md.
#pragma once

#include "max.h"

// ---- plugapi.h
class FPInterface;
class ClassDesc {
 public:
  virtual ~ClassDesc();
  virtual int IsPublic() = 0;
  virtual void* Create(BOOL loading = FALSE) = 0;
  virtual int BeginCreate(Interface* i);
  virtual int EndCreate(Interface* i);
  virtual const MCHAR* ClassName() = 0;
  virtual const MCHAR* NonLocalizedClassName() = 0;
  virtual SClass_ID SuperClassID() = 0;
  virtual Class_ID ClassID() = 0;
  virtual const MCHAR* Category() = 0;
  virtual BOOL OkToCreate(Interface* i);
  virtual const MCHAR* InternalName();
  virtual HINSTANCE HInstance();
  virtual DWORD InitialRollupPageState();
  virtual void AddInterface(FPInterface* fpi);
};

// ---- paramtype.h
enum ParamType2 {
  TYPE_FLOAT = 0,
  TYPE_INT = 1,
  TYPE_BOOL = 4,
  TYPE_ANGLE = 5,
  TYPE_PCNT_FRAC = 6,
  TYPE_WORLD = 7,
  TYPE_STRING = 8,
  TYPE_FILENAME = 9,
  TYPE_TIMEVALUE = 12,
  TYPE_INODE = 17,
  TYPE_INDEX = 19,
  TYPE_VOID = 25,
  TYPE_INTERVAL = 26,
  TYPE_BITARRAY = 31,
  TYPE_CONTROL = 35,
  TYPE_TSTR = 37,
  TYPE_NAME = 41,
  TYPE_FPVALUE = 43,
  TYPE_VALUE = 44,
  TYPE_bool = 46,
};
#define TYPE_TAB 0x800
#define TYPE_FLOAT_TAB (ParamType2)(TYPE_FLOAT + TYPE_TAB)
#define TYPE_INODE_TAB (ParamType2)(TYPE_INODE + TYPE_TAB)

// ---- iparamb2.h
typedef short BlockID;
typedef short ParamID;
typedef int StringResID;

#define P_AUTO_CONSTRUCT 0x0002
#define P_AUTO_UI 0x0004
#define P_VERSION 0x0400

#define P_ANIMATABLE 0x00000001
#define P_TRANSIENT 0x00000002
#define P_NO_INIT 0x00000004
#define P_COMPUTED_NAME 0x00000008
#define P_INVISIBLE 0x00000010
#define P_RESET_DEFAULT 0x00000020
#define P_SUBANIM 0x00000040
#define P_TV_SHOW_ALL 0x00000080
#define P_NO_REF 0x00000100
#define P_OWNERS_REF 0x00000200
#define P_CAN_CONVERT 0x00000400
#define P_SUBTEX 0x00000800
#define P_VARIABLE_SIZE 0x00001000
#define P_NO_AUTO_LABELS 0x00002000
#define P_SHORT_LABELS 0x00004000
#define P_READ_ONLY 0x00008000

enum ParamTags {
  p_end = -(1 << 30),
  p_default,
  p_ms_default,
  p_range,
  p_ui,
  p_validator,
  p_accessor,
};

class IParamBlock2;
class ClassDesc2;

class PBValidator {
 public:
  virtual ~PBValidator();
};
class PBAccessor {
 public:
  virtual ~PBAccessor();
  virtual MSTR GetLocalName(ReferenceMaker* owner, ParamID id, int tabIndex, bool localized);
};

class ParamBlockDesc2 {
 public:
  ParamBlockDesc2(BlockID ID, const MCHAR* int_name, StringResID local_name, ClassDesc2* cd,
                  USHORT flags, ...);
  ~ParamBlockDesc2();
  void AddParam(ParamID id, ...);
  USHORT Count();
  int IDtoIndex(ParamID id);
};

class ClassDesc2 : public ClassDesc {
 public:
  ClassDesc2();
  ~ClassDesc2() override;
  int NumParamBlockDescs();
  ParamBlockDesc2* GetParamBlockDesc(int i);
  ParamBlockDesc2* GetParamBlockDescByID(BlockID id);
  void AddParamBlockDesc(ParamBlockDesc2* pbd);
  void BeginEditParams(IObjParam* ip, ReferenceMaker* obj, ULONG flags, Animatable* prev);
  void EndEditParams(IObjParam* ip, ReferenceMaker* obj, ULONG flags, Animatable* next);
  void MakeAutoParamBlocks(ReferenceMaker* owner);
  virtual const MCHAR* GetRsrcString(INT_PTR id);
};

class IParamBlock2 : public ReferenceTarget {
 public:
  virtual BOOL SetValue(ParamID id, TimeValue t, float v, int tabIndex = 0) = 0;
  virtual BOOL SetValue(ParamID id, TimeValue t, int v, int tabIndex = 0) = 0;
  virtual float GetFloat(ParamID id, TimeValue t = 0, int tabIndex = 0) = 0;
  virtual int GetInt(ParamID id, TimeValue t = 0, int tabIndex = 0) = 0;
};
