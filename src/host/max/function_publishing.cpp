#include "host/max/function_publishing.h"

#include <maxscript/foundation/functions.h>
#include <maxscript/foundation/streams.h>
#include <maxscript/kernel/exceptions.h>
#include <maxscript/maxscript.h>
#include <maxscript/util/listener.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "host/max/cache_object.h"
#include "host/max/class_desc.h"
#include "host/max/fp_convert.h"
#include "host/max/max_host.h"
#include "object/cache_obj.h"
#include "script/cache_fns.h"

namespace kv::max {

namespace {

ParamType2 P(int code) {
  return static_cast<ParamType2>(code);
}

// Texts that SDK values point into; they must outlive the values.
using TextStore = std::deque<std::wstring>;

void LoadDefault(FPValue& v, int type, const script::Default& d, TextStore& texts) {
  v.type = P(type);
  switch (d.kind) {
    case script::Default::kNone:
      v.ptr = nullptr;  // "none": a null file name, node or value
      break;
    case script::Default::kBool:
    case script::Default::kInt:
      v.i = static_cast<int>(d.number);
      break;
    case script::Default::kFloat:
      v.f = static_cast<float>(d.number);
      break;
    case script::Default::kTime:
      v.t = static_cast<TimeValue>(d.number);
      break;
    case script::Default::kString:
      texts.push_back(Widen(d.text));
      v.s = const_cast<MCHAR*>(texts.back().c_str());  // the member is not const in every SDK
      break;
  }
}

FPInterfaceDesc* Build(ClassDesc& cd) {
  static TextStore texts;  // the defaults' strings, for the descriptor's life
  const fp::InterfaceDesc d = fp::DescribeInterface();
  auto* desc = new FPInterfaceDesc();  // lives as long as the library
  desc->ID = Interface_ID(d.idA, d.idB);
  desc->internal_name = Widen(d.name).c_str();
  desc->description = 0;
  desc->flags = d.flags;
  for (const fp::FunctionDesc& f : d.functions) {
    auto* fd = new FPFunctionDef();
    fd->ID = f.id;
    fd->internal_name = Widen(f.name).c_str();
    fd->description = 0;
    fd->result_type = P(f.resultType);
    fd->keyparms = static_cast<short>(f.keyParams);
    if (f.keyParams > 0) fd->flags |= FP_HAS_KEYARGS;
    for (const fp::ParamDesc& a : f.params) {
      auto* pd = new FPParamDef();
      pd->internal_name = Widen(a.name).c_str();
      pd->description = 0;
      pd->type = P(a.type);
      if (a.keyword) {
        pd->flags |= FPP_KEYARG;
        pd->options = new FPParamOptions();
        LoadDefault(pd->options->keyarg_default, a.type, a.def, texts);
      }
      fd->params.Append(1, &pd);
    }
    desc->functions.Append(1, &fd);
  }
  for (const fp::PropertyDesc& p : d.properties) {
    auto* pd = new FPPropDef();
    pd->getter_ID = p.getterId;
    pd->setter_ID = p.setterId;
    pd->internal_name = Widen(p.name).c_str();
    pd->description = 0;
    pd->prop_type = P(p.type);
    desc->props.Append(1, &pd);
  }
  desc->SetClassDesc(&cd);
  cd.AddInterface(desc);
  return desc;
}

// What one call needs kept alive while the core runs: the controller wrappers its arguments
// were converted to.
struct CallScope {
  std::vector<std::unique_ptr<MaxControl>> controls;
};

// What reading an argument needs from 3ds Max (fp::Read).
struct SdkIn {
  CallScope& scope;
  std::string Text(const wchar_t* s) { return Narrow(s); }
  kv::Interval Range(const ::Interval& i) { return ToKv(i); }
  host::Node* Node(::INode* n) { return TheHost().Wrap(n); }
  host::Control* Control(::Control* c) {
    scope.controls.push_back(std::make_unique<MaxControl>(c));
    return scope.controls.back().get();
  }
};

// What writing a result needs (fp::Write): allocations the FPValue owns, names kept here.
struct SdkOut {
  TextStore names;
  MSTR* NewText(const std::string& s) { return new MSTR(Widen(s).c_str()); }
  const wchar_t* NameText(const std::string& s) {
    names.push_back(Widen(s));
    return names.back().c_str();
  }
  ::Interval* NewRange(kv::Interval iv) { return new ::Interval(ToMax(iv)); }
  ::INode* SdkNode(host::Node* n) {
    auto* m = dynamic_cast<MaxNode*>(n);
    return m ? m->Sdk() : nullptr;
  }
  ::Control* SdkControl(host::Control* c) { return MaxControl::SdkOf(c); }
  ::BitArray* NewBits(int n) { return new ::BitArray(n); }
  Tab<FPValue*>* NewTab() { return new Tab<FPValue*>(); }
  FPValue* NewValue() { return new FPValue(); }
  void Append(Tab<FPValue*>* tab, FPValue* v) { tab->Append(1, &v); }
};

// An argument of table type `type`. A value-typed argument arrives as a script value, which
// the scripting engine itself turns into a function-publishing value first.
script::Value ArgToScript(FPValue& v, script::Type type, CallScope& scope) {
  SdkIn in{scope};
  if (type != script::Type::Value || fp::BaseCode(v.type) != fp::kValue) return fp::Read(v, in);
  if (!v.v) return script::Value::Undef();
  FPValue plain;
  v.v->to_fpvalue(plain);
  return fp::Read(plain, in);
}

void StoreResult(script::Type type, const script::Value& s, FPValue& result) {
  switch (type) {
    case script::Type::Bool:
      result.type = TYPE_BOOL;
      result.i = s.b ? TRUE : FALSE;
      return;
    case script::Type::Int:
      result.type = TYPE_INT;
      result.i = s.i;
      return;
    case script::Type::Float:
      result.type = TYPE_FLOAT;
      result.f = static_cast<float>(s.IsNumber() ? s.Number() : 0.0);
      return;
    case script::Type::Time:
      result.type = TYPE_TIMEVALUE;
      result.t = s.t;
      return;
    case script::Type::Value: {
      auto* conv = static_cast<ValueConverter*>(GetCOREInterface(VALUECONVERTER_INTERFACE_ID));
      if (!conv) break;
      SdkOut out;
      FPValue plain;
      fp::Write(s, plain, out);
      result.type = TYPE_VALUE;
      result.v = conv->FPValue_to_val(plain);
      return;
    }
    default:
      break;
  }
  result.type = TYPE_VOID;
}

}  // namespace

Interface_ID CacheFnsId() {
  return Interface_ID(script::kInterfaceIdA, script::kInterfaceIdB);
}

FPInterfaceDesc& CacheFnsDesc(ClassDesc& cd) {
  static FPInterfaceDesc* desc = Build(cd);
  return *desc;
}

FPInterfaceDesc* MaxCacheFns::GetDesc() {
  return &CacheFnsDesc(TheClassDesc());
}

FPStatus MaxCacheFns::_dispatch_fn(FunctionID fid, TimeValue t, FPValue& result, FPParams* p) {
  const script::FunctionDef* f = script::FindFunction(fid);
  if (!f) return FPS_NO_SUCH_FUNCTION;
  CallScope scope;
  std::vector<script::Value> args;
  const size_t given = p ? p->params.length() : 0;
  for (size_t i = 0; i < given && i < f->args.size(); ++i) {
    args.push_back(ArgToScript(p->params[i], f->args[i].type, scope));
  }
  script::CacheFns fns(core_);
  script::Value out;
  std::string error;
  const int status = fns.Dispatch(fid, t, out, args, error);
  if (status == script::kNoSuchFunction) return FPS_NO_SUCH_FUNCTION;
  // The scripting engine catches its own runtime errors around every call it makes.
  if (status == script::kDispatchFailed) throw RuntimeError(Widen(error).c_str());
  StoreResult(f->result, out, result);
  return FPS_OK;
}

// ---- the object's interfaces and the listener

BaseInterface* MaxCacheObject::GetInterface(Interface_ID id) {
  if (id == CacheFnsId()) {
    if (!fns_) fns_ = std::make_unique<MaxCacheFns>(Core());
    return fns_.get();
  }
  return SimpleObject2::GetInterface(id);
}

void MaxHost::ListenerPrint(const std::string& text) {
  if (!the_listener || !the_listener->edit_stream) return;
  const std::wstring w = Widen(text);
  the_listener->edit_stream->printf(_M("%s"), w.c_str());
  the_listener->edit_stream->flush();
}

}  // namespace kv::max
