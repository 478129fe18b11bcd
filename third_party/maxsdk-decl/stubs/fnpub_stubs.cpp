// Empty bodies for the function-publishing and scripting declarations of the stand-in, so that
// the plug-in links on a machine without the SDK. Nothing here is ever run by 3ds Max.
#include "baseinterface.h"
#include "bitarray.h"
#include "ifnpub.h"
#include "maxscript/foundation/functions.h"
#include "maxscript/maxscript.h"

BaseInterface::~BaseInterface() {}
Interface_ID BaseInterface::GetID() {
  return Interface_ID();
}
BaseInterface* InterfaceServer::GetInterface(Interface_ID) {
  return nullptr;
}
void ClassDesc::AddInterface(FPInterface*) {}

BitArray::BitArray() : bits_(nullptr), size_(0) {}
BitArray::BitArray(int n) : bits_(nullptr), size_(n) {}
BitArray::~BitArray() {}
void BitArray::SetSize(int n, int) {
  size_ = n;
}
int BitArray::GetSize() const {
  return size_;
}
void BitArray::Set(int) {}
int BitArray::operator[](int) const {
  return 0;
}

FPStatus FPInterface::_dispatch_fn(FunctionID, TimeValue, FPValue&, FPParams*) {
  return FPS_NO_SUCH_FUNCTION;
}
FPMixinInterface::FPMixinInterface() {}
FPMixinInterface::~FPMixinInterface() {}

FPValue::FPValue() : type(TYPE_VOID), ptr(nullptr) {}
FPValue::~FPValue() {}
void FPValue::Free() {}
void FPValue::Init() {}
FPParams::FPParams() {}
FPParams::~FPParams() {}
FPParamOptions::FPParamOptions() : validator(nullptr) {}
FPParamOptions::~FPParamOptions() {}
FPParamDef::FPParamDef()
    : cbStruct(sizeof(FPParamDef)),
      description(0),
      type(TYPE_VOID),
      enumID(FP_NO_ENUM),
      flags(0),
      options(nullptr) {}
FPParamDef::~FPParamDef() {}
FPFunctionDef::FPFunctionDef()
    : cbStruct(sizeof(FPFunctionDef)),
      ID(FP_NO_FUNCTION),
      description(0),
      flags(0),
      result_type(TYPE_VOID),
      enumID(FP_NO_ENUM),
      keyparms(0) {}
FPFunctionDef::~FPFunctionDef() {}
FPPropDef::FPPropDef()
    : cbStruct(sizeof(FPPropDef)),
      getter_ID(FP_NO_FUNCTION),
      setter_ID(FP_NO_FUNCTION),
      description(0),
      flags(0),
      prop_type(TYPE_VOID),
      enumID(FP_NO_ENUM),
      setter_param(nullptr),
      options(nullptr) {}
FPPropDef::~FPPropDef() {}
FPInterfaceDesc::FPInterfaceDesc() : description(0), cd(nullptr), flags(0) {}
FPInterfaceDesc::FPInterfaceDesc(Interface_ID id, const MCHAR*, StringResID descr, ClassDesc* c,
                                 ULONG flag, ...)
    : ID(id), description(descr), cd(c), flags(static_cast<USHORT>(flag)) {}
FPInterfaceDesc::~FPInterfaceDesc() {}
void FPInterfaceDesc::SetClassDesc(ClassDesc* c) {
  cd = c;
}
FPInterface* GetCOREInterface(Interface_ID) {
  return nullptr;
}

Value::~Value() {}
void Value::to_fpvalue(FPValue& v) {
  v.type = TYPE_VOID;
  v.ptr = nullptr;
}
void CharStream::wputs(const MCHAR*) {}
int CharStream::printf(const MCHAR*, ...) {
  return 0;
}
void CharStream::flush() {}
Listener* the_listener = nullptr;
MAXScriptException::~MAXScriptException() {}
RuntimeError::RuntimeError(const MCHAR*) {}
RuntimeError::~RuntimeError() {}
