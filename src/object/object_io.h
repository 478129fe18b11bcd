// Stored forms of the cache object's own data: the element selection bit array and the gizmo
// controller. All numbers little-endian.
#pragma once

#include "geom/bitarray.h"
#include "host/controller.h"
#include "host/scene.h"

namespace kv {

// Bit array: u32 bit count, then ceil(count / 32) u32 words, bit i in word i / 32 at bit
// i % 32. An empty array is the count 0 alone.
bool SaveBitArray(host::ISave& s, const BitArray& bits);
// Reads in bounded pieces so a corrupt count fails on the short read, not on allocation.
host::IOResult LoadBitArray(host::ILoad& l, BitArray& bits);

// Matrix controller: u32 key count; with no keys the constant value as 12 f32 (rows 0 to 3);
// otherwise per key an i32 tick and its 12 f32. A null controller is stored as the identity.
bool SaveController(host::ISave& s, const host::Control* c);
// Puts the stored value or keys into `c` (nothing when null, the data is still consumed).
host::IOResult LoadController(host::ILoad& l, host::Control* c);

}  // namespace kv
