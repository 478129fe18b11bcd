#include "script/param_access.h"

#include <cmath>
#include <vector>

#include "object/cache_obj.h"
#include "object/params.h"
#include "object/validators.h"
#include "script/literal.h"

namespace kv::script {

namespace {

using param::ParamDef;
using param::Type;

// Switches whose values run beyond on and off (radio buttons) read and set as integers.
bool IsSwitch(const ParamDef& d) {
  return d.type == Type::Bool && !d.HasLimits();
}

const ParamDef* Find(std::string_view name, std::string& error) {
  const ParamDef* d = param::FindParamByScriptName(name);
  if (!d) error = "no parameter named '" + std::string(name) + "'";
  return d;
}

const char* TypeText(const ParamDef& d) {
  switch (d.type) {
    case Type::Int:
      return "an integer";
    case Type::Float:
    case Type::World:
      return "a number";
    case Type::Bool:
      return IsSwitch(d) ? "true or false" : "an integer";
    case Type::FileName:
      return "a string";
    case Type::Node:
      return "a node ($Name) or undefined";
    case Type::NodeList:
      return "an array of nodes";
    case Type::FloatList:
      return "an array of numbers";
  }
  return "?";
}

// Whether `node` passes the acceptance rule of parameter `id` (true for parameters without
// one), and the refusal's text.
bool Accepts(kvCache_obj& obj, int id, host::Node* node, TimeValue t, std::string& why) {
  if (!node) return true;
  host::Interface& ip = obj.Host();
  switch (id) {
    case param::kTriggerOmni:
      if (kvCacheHelperValidator().Validate(node, t)) return true;
      why = "triggerOmni takes an omni light; $'" + node->GetName() + "' is none";
      return false;
    case param::kExplodeToNode:
      if (kvCacheExplodeNodeValidator(ip, &obj).Validate(node, t)) return true;
      why = "explodeToNode refuses $'" + node->GetName() +
            "': it is deleted or depends on the cache object";
      return false;
    case param::kNodes:
      if (kvCacheNodesValidator(ip, &obj, nullptr).Validate(node, t)) return true;
      why = "nodes refuses $'" + node->GetName() +
            "': it is deleted, depends on the cache object or has no mesh";
      return false;
    default:
      return true;
  }
}

}  // namespace

bool GetParam(kvCache_obj& obj, std::string_view name, TimeValue t, Value& out,
              std::string& error) {
  const ParamDef* d = Find(name, error);
  if (!d) return false;
  const ParamBlock& pb = obj.Params();
  switch (d->type) {
    case Type::Int:
      out = Value::Int(pb.GetInt(d->id, t));
      break;
    case Type::Bool:
      out = IsSwitch(*d) ? Value::Bool(pb.GetBool(d->id, t)) : Value::Int(pb.GetInt(d->id, t));
      break;
    case Type::Float:
    case Type::World:
      out = Value::Float(pb.GetFloat(d->id, t));
      break;
    case Type::FileName:
      out = Value::String(pb.GetString(d->id));
      break;
    case Type::Node:
      out = Value::NodeRef(pb.GetNode(d->id));
      break;
    case Type::NodeList: {
      std::vector<Value> items;
      for (int i = 0; i < pb.Count(d->id); ++i)
        items.push_back(Value::NodeRef(pb.GetNode(d->id, i)));
      out = Value::List(std::move(items));
      break;
    }
    case Type::FloatList: {
      std::vector<Value> items;
      for (int i = 0; i < pb.Count(d->id); ++i) {
        items.push_back(Value::Float(pb.GetListFloat(d->id, i, t)));
      }
      out = Value::List(std::move(items));
      break;
    }
  }
  return true;
}

bool SetParam(kvCache_obj& obj, std::string_view name, TimeValue t, const Value& v,
              std::string& error) {
  const ParamDef* d = Find(name, error);
  if (!d) return false;
  if (d->flags & param::kNotScriptable) {
    error = std::string(d->scriptName) + " cannot be set by a script";
    return false;
  }
  host::Interface& ip = obj.Host();
  const std::string shown = PrintLiteral(v, ip);
  auto wrongType = [&] {
    error = std::string(d->scriptName) + " takes " + TypeText(*d) + ", not " + shown;
    return false;
  };

  // Every check comes first: a refused value changes nothing.
  std::vector<host::Node*> nodes;
  switch (d->type) {
    case Type::Int:
      if (!v.Is(Kind::Int)) return wrongType();
      break;
    case Type::Bool:
      if (IsSwitch(*d) ? !v.Is(Kind::Bool) : !v.Is(Kind::Int)) return wrongType();
      break;
    case Type::Float:
    case Type::World:
      if (!v.IsNumber()) return wrongType();
      break;
    case Type::FileName:
      if (!v.Is(Kind::String)) return wrongType();
      break;
    case Type::Node:
      if (!v.Is(Kind::Node) && !v.Is(Kind::Undefined)) return wrongType();
      nodes.push_back(v.node);
      break;
    case Type::NodeList:
      if (!v.Is(Kind::Array)) return wrongType();
      for (const Value& item : v.items) {
        if (!item.Is(Kind::Node) && !item.Is(Kind::Undefined)) return wrongType();
        nodes.push_back(item.node);
      }
      break;
    case Type::FloatList:
      if (!v.Is(Kind::Array)) return wrongType();
      for (const Value& item : v.items) {
        if (!item.IsNumber()) return wrongType();
      }
      break;
  }
  for (host::Node* n : nodes) {
    if (!Accepts(obj, d->id, n, t, error)) return false;
  }
  if (d->type == Type::NodeList) {
    for (size_t i = 0; i < nodes.size(); ++i) {
      for (size_t j = 0; j < i; ++j) {
        if (nodes[i] && nodes[i] == nodes[j]) {
          error = "nodes lists $'" + nodes[i]->GetName() + "' twice";
          return false;
        }
      }
    }
  }

  ParamBlock& pb = obj.Params();
  bool ok = true;
  switch (d->type) {
    case Type::Int:
      ok = pb.SetInt(d->id, t, v.i);
      break;
    case Type::Bool:
      ok = pb.SetInt(d->id, t, v.Is(Kind::Bool) ? (v.b ? 1 : 0) : v.i);
      break;
    case Type::Float:
    case Type::World:
      ok = pb.SetFloat(d->id, t, static_cast<float>(v.Number()));
      break;
    case Type::FileName:
      ok = pb.SetString(d->id, v.s);
      break;
    case Type::Node:
      ok = pb.SetNode(d->id, v.node);
      break;
    case Type::NodeList:
      ok = pb.SetCount(d->id, 0);
      for (host::Node* n : nodes) ok = ok && pb.Append(d->id, n);
      break;
    case Type::FloatList:
      ok = pb.SetCount(d->id, static_cast<int>(v.items.size()));
      for (size_t i = 0; ok && i < v.items.size(); ++i) {
        ok =
            pb.SetListFloat(d->id, static_cast<int>(i), t, static_cast<float>(v.items[i].Number()));
      }
      break;
  }
  if (!ok) error = "the parameter block refused " + shown + " for " + std::string(d->scriptName);
  return ok;
}

}  // namespace kv::script
