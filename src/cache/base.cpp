#include "cache/base.h"

#include <cinttypes>
#include <utility>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace KelvaneTools {

std::string_view ErrorMessage(uint32_t code) {
  switch (code) {
    case kErrFileNotFound:
      return kMsgFileNotFound;
    case kErrNotOpen:
      return kMsgUnknownFileError;
    case kErrReadPastEof:
      return kMsgReadPastEof;
    case kErrFile:
      return kMsgUnknownFileError;
    case kErrException:
      return kMsgUnhandledException;
    case kErrInvalidFile:
      return kMsgInvalidCacheFile;
    case kErrCancelled:
      return kMsgCancelled;
    default:
      return {};
  }
}

void AdviseLargePages(const void* p, size_t bytes) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  constexpr uintptr_t kLarge = uintptr_t{2} << 20;
  if (bytes < 2 * kLarge) return;
  const uintptr_t first = (reinterpret_cast<uintptr_t>(p) + kLarge - 1) & ~(kLarge - 1);
  const uintptr_t last = (reinterpret_cast<uintptr_t>(p) + bytes) & ~(kLarge - 1);
  if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
  (void)p, (void)bytes;
#endif
}

std::string SizeText(uint64_t bytes) {
  static constexpr const char* kUnits[] = {"TB", "GB", "MB", "KB", "B"};
  uint64_t divisor = uint64_t{1} << 40;
  int unit = 0;
  while (bytes < divisor && unit < 4) {
    divisor /= 1024;
    ++unit;
  }
  char buf[64];
  if (bytes % divisor == 0) {
    std::snprintf(buf, sizeof buf, "%" PRIu64 " %s", bytes / divisor, kUnits[unit]);
  } else {
    const float q = static_cast<float>(bytes) / static_cast<float>(divisor);
    std::snprintf(buf, sizeof buf, "%.2f %s", static_cast<double>(q), kUnits[unit]);
  }
  return buf;
}

kvCacheBase::kvCacheBase(std::string fileName, bool writeMode, int32_t version, int32_t start,
                         int32_t end, int32_t step)
    : writeMode_(writeMode),
      fileName_(std::move(fileName)),
      start_(start),
      end_(end),
      step_(step),
      version_(version) {}

kvCacheBase::~kvCacheBase() {
  Close();
}

bool kvCacheBase::OpenFile() {
  if (file_) return true;
  file_ = std::fopen(fileName_.c_str(), writeMode_ ? "wb" : "rb");
  if (!file_) {
    error_ = kErrFileNotFound;
    return false;
  }
  return true;
}

void kvCacheBase::Close() {
  if (file_) std::fclose(file_);
  file_ = nullptr;
}

bool kvCacheBase::Seek(int64_t offset, int origin, uint32_t failCode) {
  if (!file_) {
    error_ = kErrNotOpen;
    return false;
  }
  if (fseeko(file_, static_cast<off_t>(offset), origin) != 0) {
    error_ = failCode;
    return false;
  }
  return true;
}

bool kvCacheBase::ReportProgress(uint32_t done, uint32_t total) {
  lastDone_ = done;
  lastTotal_ = total;
  if (progress_ && !progress_(progressUser_, done, total)) {
    error_ = kErrCancelled;
    return false;
  }
  return true;
}

bool kvCacheBase::ReadBytes(void* dst, size_t n) {
  if (!file_) {
    error_ = kErrNotOpen;
    return false;
  }
  if (n == 0) return true;
  if (std::fread(dst, 1, n, file_) != n) {
    error_ = std::feof(file_) ? kErrReadPastEof : kErrFile;
    std::clearerr(file_);
    return false;
  }
  return true;
}

bool kvCacheBase::WriteBytes(const void* src, size_t n) {
  if (!file_) {
    error_ = kErrNotOpen;
    return false;
  }
  if (n != 0 && std::fwrite(src, 1, n, file_) != n) {
    error_ = kErrFile;
    return false;
  }
  return true;
}

}  // namespace KelvaneTools

namespace KelvaneTools {
std::string MaterialLibraryPath(const std::string& cacheFile) {
  if (cacheFile.size() < 3) return {};
  return cacheFile.substr(0, cacheFile.size() - 3) + "mat";
}
}  // namespace KelvaneTools
