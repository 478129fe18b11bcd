// The recorder's user-visible texts.
#pragma once

namespace kv::record_text {

inline constexpr const char* kNothingToCache = "Nothing to cache!";
inline constexpr const char* kErrorTitle = "Error!";
inline constexpr const char* kWriteErrorTitle = "Write Error!";
inline constexpr const char* kDeleteTmpObjects = "Delete tmp objects";
inline constexpr const char* kEmptyNodeList = "Empty node list";
inline constexpr const char* kWritingCache = "Writing Cache (%i %%) ...";
inline constexpr const char* kSaving = "Saving ...";
inline constexpr const char* kAnalyzingScene = "Analyzing scene (%i %%) ...";
inline constexpr const char* kSaveDialogTitle = "Save Cache File";
inline constexpr const char* kSaveDialogFilter = "KV Cache (*.kvc)|*.kvc";
inline constexpr const char* kDefaultFileName = "KVCache_";
// The writer's message for a failed rename, which it never reports itself.
inline constexpr const char* kUnknownFileError = "Unknown file error.";

}  // namespace kv::record_text
