// Declarations-only stand-in: the listener (maxscript/util/listener.h) is declared with the
// other scripting declarations. See ../../../README.md.
#pragma once

#include "../maxscript.h"
