#include "progress.h"

#include <csignal>
#include <ostream>

namespace kv::cli {
namespace {

volatile std::sig_atomic_t g_interrupted = 0;
bool g_barsEnabled = true;

extern "C" void OnSigint(int) {
  g_interrupted = 1;
}

}  // namespace

void InstallInterruptHandler() {
  std::signal(SIGINT, OnSigint);
}
bool InterruptRequested() {
  return g_interrupted != 0;
}
void RequestInterrupt() {
  g_interrupted = 1;
}
void ClearInterrupt() {
  g_interrupted = 0;
}

void SetProgressBarsEnabled(bool on) {
  g_barsEnabled = on;
}

bool ProgressBar::Update(const std::string& label, uint64_t done, uint64_t total) {
  if (enabled_ && g_barsEnabled) {
    constexpr int kWidth = 30;
    std::string line = label;
    if (total > 0) {
      if (done > total) done = total;
      const int fill = static_cast<int>(done * kWidth / total);
      const int pct = static_cast<int>(done * 100 / total);
      line += " [" + std::string(fill, '#') + std::string(kWidth - fill, '.') + "] " +
              std::to_string(pct) + "%";
    }
    if (line != last_) {
      // Pad over the previous, possibly longer, line.
      const size_t pad = last_.size() > line.size() ? last_.size() - line.size() : 0;
      err_ << '\r' << line << std::string(pad, ' ') << std::flush;
      last_ = std::move(line);
      drawn_ = true;
    }
  }
  return !InterruptRequested();
}

void ProgressBar::Finish() {
  if (drawn_) err_ << '\n' << std::flush;
  drawn_ = false;
  last_.clear();
}

}  // namespace kv::cli
