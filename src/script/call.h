// Calling a KV_Cache_Fns function or reading one of its properties by name, the way a script
// does: positional arguments, then keyword arguments in any order, converted to the table's
// types with the keyword defaults filled in, then one dispatch by id.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/interface.h"
#include "script/cache_fns.h"
#include "script/literal.h"

namespace kv::script {

// Builds the dispatcher's argument list for `f`: the positional values as given (too few
// leave the list short, so the dispatcher raises its out-of-bounds error), then, when every
// positional is there, each keyword argument's value or its default. False with a message for
// a value of the wrong type, an unknown keyword, a keyword given twice, or too many
// positional values.
bool BindArgs(const FunctionDef& f, const std::vector<CallArg>& given, host::Interface& ip,
              std::vector<Value>& out, std::string& error);

enum class CallStatus {
  Ok,
  UnknownFunction,  // no published function or property has that name
  BadArguments,     // the arguments do not fit the function (BindArgs)
  Failed,           // the function raised a runtime error
};

// Calls `name` on `fns` at time t. `error` receives the message (the runtime error's exact
// text when Failed).
CallStatus CallByName(kvCache_mxs& fns, std::string_view name, const std::vector<CallArg>& args,
                      host::Interface& ip, TimeValue t, Value& result, std::string& error);

}  // namespace kv::script
