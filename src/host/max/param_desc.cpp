#include "host/max/param_desc.h"

#include <deque>

#include "host/max/cache_object.h"
#include "object/cache_obj.h"
#include "object/params.h"

namespace kv::max {

namespace {

ParamType2 TypeOf(param::Type t) {
  switch (t) {
    case param::Type::Int:
      return TYPE_INT;
    case param::Type::Float:
      return TYPE_FLOAT;
    case param::Type::World:
      return TYPE_WORLD;
    case param::Type::Bool:
      return TYPE_BOOL;
    case param::Type::FileName:
      return TYPE_FILENAME;
    case param::Type::Node:
      return TYPE_INODE;
    case param::Type::NodeList:
      return TYPE_INODE_TAB;
    case param::Type::FloatList:
      return TYPE_FLOAT_TAB;
  }
  return TYPE_INT;
}

int FlagsOf(const param::ParamDef& d) {
  int f = 0;
  if (d.flags & param::kAnimatable) f |= P_ANIMATABLE;
  if (d.flags & param::kResetDefault) f |= P_RESET_DEFAULT;
  if (d.flags & param::kVariableSize) f |= P_VARIABLE_SIZE;
  if (d.flags & param::kTrackViewWhole) f |= P_TV_SHOW_ALL;
  if (d.flags & param::kNotScriptable) f |= P_READ_ONLY;
  return f;
}

// Names of list entries as the core computes them (element frames are named by their groups).
class EntryNames final : public PBAccessor {
 public:
  MSTR GetLocalName(ReferenceMaker* owner, ParamID id, int tabIndex, bool) override {
    auto* obj = dynamic_cast<MaxCacheObject*>(owner);
    if (!obj) return MSTR();
    return MSTR(Widen(obj->Core().Params().GetEntryName(id, tabIndex)).c_str());
  }
};

}  // namespace

void DescribeParams(ClassDesc2& cd) {
  // The descriptor keeps pointers to its names for the library's life.
  static std::deque<std::wstring> names;
  static const std::wstring blockName = Widen(param::kBlockName);
  static ParamBlockDesc2 desc(static_cast<BlockID>(param::kBlockId), blockName.c_str(), 0, &cd,
                              P_VERSION, param::kBlockVersion, p_end);
  for (const param::ParamDef& d : param::ParamDefs()) {
    const wchar_t* name = names.emplace_back(Widen(d.scriptName)).c_str();
    const ParamID id = static_cast<ParamID>(d.id);
    const ParamType2 type = TypeOf(d.type);
    const int flags = FlagsOf(d);
    // Varargs promote floats to double, which is what the descriptor reads back.
    if (d.type == param::Type::Float || d.type == param::Type::World) {
      if (d.HasLimits()) {
        desc.AddParam(id, name, type, flags, d.displayNameId, p_default, d.def, p_range, d.lo, d.hi,
                      p_end);
      } else {
        desc.AddParam(id, name, type, flags, d.displayNameId, p_default, d.def, p_end);
      }
    } else if (d.IsIntLike()) {
      const int def = static_cast<int>(d.def);
      if (d.HasLimits()) {
        desc.AddParam(id, name, type, flags, d.displayNameId, p_default, def, p_range,
                      static_cast<int>(d.lo), static_cast<int>(d.hi), p_end);
      } else {
        desc.AddParam(id, name, type, flags, d.displayNameId, p_default, def, p_end);
      }
    } else if (d.id == param::kElementFrames) {
      static EntryNames entryNames;
      desc.AddParam(id, name, type, flags, d.displayNameId, p_accessor, &entryNames, p_end);
    } else {
      desc.AddParam(id, name, type, flags, d.displayNameId, p_end);
    }
  }
}

}  // namespace kv::max
