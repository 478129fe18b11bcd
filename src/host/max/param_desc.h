// The SDK's parameter block descriptor, built from the core's parameter table so that ids,
// script names, types, defaults and limits are written once.
#pragma once

#include "host/max/sdk.h"

namespace kv::max {

// Adds the block descriptor of the cache object to `cd`; once per library.
void DescribeParams(ClassDesc2& cd);

}  // namespace kv::max
