// The cache information report: every cache file the shared registry holds open, with its
// sizes and timing and the cache objects and scene nodes that use it. It changes nothing and
// reads no file of its own: every figure comes from the open readers.
#pragma once

#include <functional>
#include <string>

#include "cache/registry.h"
#include "host/interface.h"

namespace kv::script {

// Sends the report line by line (each ending in '\n') to `sink`, entries in the registry's key
// order (file names ascending). Nothing at all when no cache is open.
void PrintCacheReport(KelvaneTools::kvCacheRegistry& registry, const host::Interface& ip,
                      const std::function<void(const std::string&)>& sink);

}  // namespace kv::script
