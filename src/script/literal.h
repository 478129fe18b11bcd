// Script values as the scripting language writes literals, for the kvcache tool's `call`,
// `get` and `set`: "text", 12, 1.5, true, false, undefined, ok, #delete, #(1, 2, 3),
// #{1..5, 9}, (interval 0f 100f), 10f (frames) or 85t (ticks), $Box001 or $'Box 001' for a
// node, and $Box001.controller, .position.controller, .rotation.controller or
// .scale.controller for a node's transform controllers.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/interface.h"
#include "script/value.h"

namespace kv::script {

// Reads exactly one literal from `text` (surrounding blanks allowed). Frames become ticks at
// `ip`'s frame rate; nodes are looked up by name in `ip`. False with a message that says where
// and what was expected when the text is not one well-formed literal or names a node that is
// not there; `out` is then Undefined.
bool ParseLiteral(std::string_view text, host::Interface& ip, Value& out, std::string& error);

// The literal of `v`: ParseLiteral reads it back to an equal value. Times print as whole
// frames when they fall on one, else as ticks; a controller prints through the node that owns
// it (a controller no node owns prints as <Controller>).
std::string PrintLiteral(const Value& v, const host::Interface& ip);

// One argument of a call: positional (empty name) or keyword (`name:value`).
struct CallArg {
  std::string name;
  Value value;
};
// Reads command-line words as call arguments: a word `name:literal` whose name is an
// identifier is a keyword argument, any other word a positional literal.
bool ParseCallArgs(const std::vector<std::string>& words, host::Interface& ip,
                   std::vector<CallArg>& out, std::string& error);

}  // namespace kv::script
