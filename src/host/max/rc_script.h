// The plug-in's resource script, written from the core's tables at build time so that no
// string id or text exists twice. Plain C++ without the SDK: the generator runs on the build
// machine, and the tests check its output on Linux.
#pragma once

#include <string>
#include <string_view>

namespace kv::max {

// A UTF-8 text as a resource-script string literal: in quotes, a quote doubled, a backslash,
// newline and tab escaped.
std::string RcQuote(std::string_view text);

// The whole script: UTF-8 code page, then the string table.
std::string ResourceScript();

}  // namespace kv::max
