// Progress on standard error and Ctrl-C as a cancel request for the long commands.
#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace kv::cli {

// SIGINT only sets a flag; the long operations see it the next time they report progress and
// stop cleanly through their own cancel path, so no file is left half-renamed.
void InstallInterruptHandler();
bool InterruptRequested();
void RequestInterrupt();
void ClearInterrupt();

// Whether bars draw at all: the tool turns them off when standard error is not a terminal, so
// logs do not fill with carriage returns.
void SetProgressBarsEnabled(bool on);

// A one-line bar, redrawn in place only when its text would change.
class ProgressBar {
 public:
  // A disabled bar draws nothing but still answers cancel requests.
  ProgressBar(std::ostream& err, bool enabled) : err_(err), enabled_(enabled) {}
  ~ProgressBar() { Finish(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Shows `label` at done/total (total 0 shows the label alone). False once Ctrl-C was pressed.
  bool Update(const std::string& label, uint64_t done, uint64_t total);
  // Ends the current line, if one is drawn.
  void Finish();

 private:
  std::ostream& err_;
  bool enabled_;
  bool drawn_ = false;
  std::string last_;
};

// Wall-clock seconds since construction, for the "took" lines.
class Stopwatch {
 public:
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0_).count();
  }

 private:
  std::chrono::steady_clock::time_point t0_ = std::chrono::steady_clock::now();
};

}  // namespace kv::cli
