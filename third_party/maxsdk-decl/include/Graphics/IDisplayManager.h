// Declarations-only stand-in: the viewport graphics system's switch (Graphics/IDisplayManager.h)
// as far as the KV Cache binding uses it. See ../../README.md.
#pragma once

namespace MaxSDK::Graphics {
// Whether the retained-mode viewport graphics system is running.
bool IsRetainedModeEnabled();
}  // namespace MaxSDK::Graphics
