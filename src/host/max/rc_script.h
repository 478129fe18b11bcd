// The plug-in's resource script, written from the core's tables at build time so that no
// string id or text exists twice. Plain C++ without the SDK: the generator runs on the build
// machine, and the tests check its output on Linux.
#pragma once

#include <string>
#include <string_view>

namespace kv::ui {
struct DialogDef;
}

namespace kv::max {

// A UTF-8 text as a resource-script string literal: in quotes, a quote doubled, a backslash,
// newline and tab escaped.
std::string RcQuote(std::string_view text);

// The dialog template of one rollout or dialog of the rollout table, with every control in
// the 3ds Max custom control class its kind calls for.
std::string DialogScript(const ui::DialogDef& d);

// The whole script: UTF-8 code page, the string table, then every rollout's and dialog's
// template.
std::string ResourceScript();

}  // namespace kv::max
