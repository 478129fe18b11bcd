// Common base of the cache reader and writer: file, error code, range and progress.
// Nothing here throws: every operation returns success and leaves an error code behind.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace KelvaneTools {

enum CacheError : uint32_t {
  kErrNone = 0,
  kErrFileNotFound = 1,  // could not be opened
  kErrNotOpen = 2,       // needed the file open and it was not
  kErrReadPastEof = 3,   // a read hit the end of the file
  kErrFile = 4,          // any other read, write, seek or position failure
  kErrException = 5,     // a host call threw while writing, or samples left unwritten
  kErrInvalidFile = 6,   // header (or element data) fails its checks
  kErrCancelled = 7,     // the progress callback answered false
};

// Fixed messages per code; codes 0 and unknown give "".
inline constexpr std::string_view kMsgFileNotFound = "File not found.";
inline constexpr std::string_view kMsgUnknownFileError = "Unknown file error.";
inline constexpr std::string_view kMsgReadPastEof = "Read past EOF.";
inline constexpr std::string_view kMsgUnhandledException = "Unhandled exception.";
inline constexpr std::string_view kMsgInvalidCacheFile = "Invalid cache file.";
inline constexpr std::string_view kMsgCancelled = "Operation cancelled.";
std::string_view ErrorMessage(uint32_t code);

// Progress: (user value, done, total) -> true to go on, false to cancel.
using ProgressFn = bool (*)(void* user, uint32_t done, uint32_t total);

// Asks the system to back a large allocation that is not yet touched with large pages, so
// that filling it takes one page fault per 2 MB instead of one per 4 KB. A hint only: a no-op
// where the system has no such request, and for small blocks.
void AdviseLargePages(const void* p, size_t bytes);

// A byte count with the largest fitting unit: "1 KB", "1.50 KB", "0 B", "3 TB".
std::string SizeText(uint64_t bytes);

class kvCacheBase {
 public:
  // A writer opens its file "wb", a reader "rb".
  kvCacheBase(std::string fileName, bool writeMode, int32_t version = 0, int32_t start = 0,
              int32_t end = 0, int32_t step = 0);
  virtual ~kvCacheBase();
  kvCacheBase(const kvCacheBase&) = delete;
  kvCacheBase& operator=(const kvCacheBase&) = delete;

  const std::string& FileName() const { return fileName_; }
  bool WriteMode() const { return writeMode_; }

  // Succeeds at once when already open; code 1 when the file cannot be opened.
  bool OpenFile();
  bool IsOpen() const { return file_ != nullptr; }
  void Close();  // idempotent
  // Code 2 when not open, `failCode` when the seek fails. 64-bit offsets.
  bool Seek(int64_t offset, int origin, uint32_t failCode = kErrFile);

  void SetError(uint32_t code) { error_ = code; }
  uint32_t ErrorCode() const { return error_; }
  // Cancellation is not an error for display purposes.
  bool InError() const { return error_ != kErrNone && error_ != kErrCancelled; }
  std::string_view ErrorMessageText() const { return ErrorMessage(error_); }

  void SetProgressCallback(ProgressFn fn, void* user) { progress_ = fn, progressUser_ = user; }
  // Calls the callback (true when none); a false answer sets code 7.
  bool ReportProgress(uint32_t done, uint32_t total);

  int32_t Start() const { return start_; }
  int32_t End() const { return end_; }
  int32_t Step() const { return step_; }
  int32_t Version() const { return version_; }

  // Raw I/O. Reads: code 2 when not open, 3 at end of file, else 4 on a short read.
  // Writes: code 2 when not open, 4 on a short write.
  bool ReadBytes(void* dst, size_t n);
  bool WriteBytes(const void* src, size_t n);

 protected:
  std::FILE* File() const { return file_; }

  bool writeMode_;
  uint32_t error_ = kErrNone;
  std::string fileName_;
  std::FILE* file_ = nullptr;
  int32_t start_, end_, step_, version_;
  ProgressFn progress_ = nullptr;
  void* progressUser_ = nullptr;
  uint32_t lastDone_ = 0, lastTotal_ = 0;  // the values last reported
};

}  // namespace KelvaneTools

namespace KelvaneTools {
// The material library kept beside a cache: the name with its last three characters
// replaced by "mat" ("shot.kvc" -> "shot.mat").
std::string MaterialLibraryPath(const std::string& cacheFile);
}  // namespace KelvaneTools
