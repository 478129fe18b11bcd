#include "script/call.h"

#include <cmath>

namespace kv::script {

namespace {

Value DefaultValue(const ArgDef& a) {
  switch (a.def.kind) {
    case Default::kNone:
      return Value();
    case Default::kBool:
      return Value::Bool(a.def.number != 0);
    case Default::kInt:
      return Value::Int(static_cast<int32_t>(a.def.number));
    case Default::kFloat:
      return Value::Float(static_cast<float>(a.def.number));
    case Default::kString:
      return Value::String(std::string(a.def.text));
    case Default::kTime:
      return Value::Time(static_cast<TimeValue>(a.def.number));
  }
  return Value();
}

// Converts `v` to the parameter type as the host's parameter conversion does: numbers cross
// between integer and float, a plain number given for a time counts frames.
bool Convert(const Value& v, Type type, int tpf, Value& out) {
  switch (type) {
    case Type::Bool:
      if (!v.Is(Kind::Bool)) return false;
      out = v;
      return true;
    case Type::Int:
      if (!v.IsNumber()) return false;
      if (v.Is(Kind::Float) && !(std::fabs(v.f) < 2147483648.0f)) return false;
      out = Value::Int(v.Is(Kind::Int) ? v.i : static_cast<int32_t>(v.f));
      return true;
    case Type::Float:
      if (!v.IsNumber()) return false;
      out = Value::Float(static_cast<float>(v.Number()));
      return true;
    case Type::String:
    case Type::FileName:
      if (!v.Is(Kind::String)) return false;
      out = v;
      return true;
    case Type::Time: {
      if (v.Is(Kind::Time)) {
        out = v;
        return true;
      }
      if (!v.IsNumber()) return false;
      const double ticks = std::round(v.Number() * tpf);
      if (!(ticks >= kTimeNegInfinity && ticks <= kTimePosInfinity)) return false;
      out = Value::Time(static_cast<TimeValue>(ticks));
      return true;
    }
    case Type::Interval:
      if (!v.Is(Kind::Interval)) return false;
      out = v;
      return true;
    case Type::Node:
      if (!v.Is(Kind::Node) && !v.Is(Kind::Undefined)) return false;
      out = v;
      return true;
    case Type::Name:
      if (!v.Is(Kind::Name)) return false;
      out = v;
      return true;
    case Type::Value:
      out = v;
      return true;
    case Type::Void:
      return false;
  }
  return false;
}

}  // namespace

bool BindArgs(const FunctionDef& f, const std::vector<CallArg>& given, host::Interface& ip,
              std::vector<Value>& out, std::string& error) {
  out.clear();
  const int tpf = ip.GetTicksPerFrame();
  const int positional = PositionalCount(f);
  auto unable = [&](const Value& v, Type t) {
    error = "Unable to convert: " + PrintLiteral(v, ip) + " to type: " + std::string(TypeName(t));
    return false;
  };

  int nextPositional = 0;
  std::vector<const Value*> keywords(f.args.size(), nullptr);
  for (const CallArg& a : given) {
    if (a.name.empty()) {
      if (nextPositional >= positional) {
        error = std::string(f.name) + " takes " + std::to_string(positional) +
                " positional argument" + (positional == 1 ? "" : "s") + ", got more";
        return false;
      }
      ++nextPositional;
      continue;
    }
    size_t k = 0;
    while (k < f.args.size() && !(f.args[k].keyword && f.args[k].name == a.name)) ++k;
    if (k == f.args.size()) {
      error = std::string(f.name) + " has no keyword argument '" + a.name + "'";
      return false;
    }
    if (keywords[k]) {
      error = "keyword argument '" + a.name + "' given twice";
      return false;
    }
    keywords[k] = &a.value;
  }

  // Positional values in order.
  size_t argIndex = 0;
  for (const CallArg& a : given) {
    if (!a.name.empty()) continue;
    while (f.args[argIndex].keyword) ++argIndex;
    Value v;
    if (!Convert(a.value, f.args[argIndex].type, tpf, v)) {
      return unable(a.value, f.args[argIndex].type);
    }
    out.push_back(std::move(v));
    ++argIndex;
  }
  if (nextPositional < positional) return true;

  for (size_t k = 0; k < f.args.size(); ++k) {
    const ArgDef& d = f.args[k];
    if (!d.keyword) continue;
    if (!keywords[k]) {
      out.push_back(DefaultValue(d));
      continue;
    }
    Value v;
    // A keyword left at "none" may be passed as undefined.
    if (keywords[k]->Is(Kind::Undefined) && d.def.kind == Default::kNone) {
      out.push_back(Value());
      continue;
    }
    if (!Convert(*keywords[k], d.type, tpf, v)) return unable(*keywords[k], d.type);
    out.push_back(std::move(v));
  }
  return true;
}

CallStatus CallByName(kvCache_mxs& fns, std::string_view name, const std::vector<CallArg>& args,
                      host::Interface& ip, TimeValue t, Value& result, std::string& error) {
  const FunctionDef* f = FindFunction(name);
  if (!f) {
    error = "Unknown property or function: \"" + std::string(name) + "\" in KV_Cache_Fns";
    return CallStatus::UnknownFunction;
  }
  if (f->property && !args.empty()) {
    error = std::string(f->name) + " is a read-only property and takes no arguments";
    return CallStatus::BadArguments;
  }
  std::vector<Value> bound;
  if (!BindArgs(*f, args, ip, bound, error)) return CallStatus::BadArguments;
  if (fns.Dispatch(f->id, t, result, bound, error) != kDispatchOk) return CallStatus::Failed;
  return CallStatus::Ok;
}

}  // namespace kv::script
