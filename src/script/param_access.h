// The cache object's parameters by script name, as a script reads and sets them
// (`$Cache.playStart = 10`): values of the value layer, node parameters checked by their
// acceptance rules, and every write through the parameter block, so that the object's own
// change handling (clamping, pushed range ends, trigger recompute) applies.
#pragma once

#include <string>
#include <string_view>

#include "geom/time.h"
#include "script/value.h"

namespace kv {
class kvCache_obj;
}

namespace kv::script {

// Reads parameter `name` at t: Int and radio values as Int, switches as Bool, floats and
// lengths as Float, the file name as String, a node as Node (undefined when empty), lists as
// arrays. False with a message for a name that is no parameter.
bool GetParam(kvCache_obj& obj, std::string_view name, TimeValue t, Value& out, std::string& error);

// Sets parameter `name` at t, as a script does: an animatable parameter gets a key at t when
// the host is in animate mode. False with a message, and nothing changed, for a name that is no
// parameter, a parameter scripts cannot set, a value of the wrong type, or a node the parameter's
// acceptance rule refuses.
bool SetParam(kvCache_obj& obj, std::string_view name, TimeValue t, const Value& v,
              std::string& error);

}  // namespace kv::script
