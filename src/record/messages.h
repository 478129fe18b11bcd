// The recorder's user-visible texts, from the library's string table.
#pragma once

#include <string>

#include "res/strings.h"

namespace kv::record_text {

inline std::string NothingToCache() {
  return res::GetString(res::IDS_NOTHING_TO_CACHE);
}
inline std::string ErrorTitle() {
  return res::GetString(res::IDS_ERROR);
}
inline std::string WriteErrorTitle() {
  return res::GetString(res::IDS_WRITE_ERROR);
}
inline std::string DeleteTmpObjects() {
  return res::GetString(res::IDS_UNDO_DELETE_TMP_OBJECTS);
}
inline std::string EmptyNodeList() {
  return res::GetString(res::IDS_UNDO_EMPTY_NODE_LIST);
}
// printf formats with one %i, the percentage.
inline std::string WritingCache() {
  return res::GetString(res::IDS_WRITING_CACHE);
}
inline std::string AnalyzingScene() {
  return res::GetString(res::IDS_ANALYZING_SCENE);
}
inline std::string Saving() {
  return res::GetString(res::IDS_SAVING);
}
inline std::string SaveDialogTitle() {
  return res::GetString(res::IDS_SAVE_CACHE);
}
inline std::string SaveDialogFilter() {
  return res::GetString(res::IDS_CACHE_FILE_FILTER);
}
// A failed rename is a file error the writer never reports itself.
inline std::string UnknownFileError() {
  return res::GetString(res::IDS_ERR_UNKNOWN_FILE);
}
inline std::string Cancelled() {
  return res::GetString(res::IDS_ERR_CANCELLED);
}

// The name the save dialog proposes when the object has no node.
inline constexpr const char* kDefaultFileName = "KVCache_";

}  // namespace kv::record_text
