// Declarations-only stand-in: declared with the other scripting declarations in
// ../maxscript.h. See ../../../README.md.
#pragma once

#include "../maxscript.h"
