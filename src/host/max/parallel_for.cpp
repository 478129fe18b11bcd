// The host's parallel loop. The 2023 SDK offers no parallel loop of its own (its thread tools
// only set how many threads parts of 3ds Max use), so the ranges go to the system thread pool.
#include <algorithm>
#include <atomic>

#include "host/max/max_host.h"

namespace kv::max {

namespace {

// Ranges handed out one at a time to whichever thread asks next, so a slow range does not hold
// up the others.
struct ParallelJob {
  host::RangeFn* fn;
  size_t n, chunks;
  std::atomic<size_t> next{0};
  void Run() {
    for (size_t c = next++; c < chunks; c = next++) (*fn)(n * c / chunks, n * (c + 1) / chunks);
  }
};

VOID CALLBACK ParallelWork(PTP_CALLBACK_INSTANCE, PVOID job, PTP_WORK) {
  static_cast<ParallelJob*>(job)->Run();
}

}  // namespace

void MaxHost::ParallelFor(size_t n, size_t grain, host::RangeFn fn) {
  if (n == 0) return;
  SYSTEM_INFO si;
  GetSystemInfo(&si);
  // Every range holds at least `grain` items: never more ranges than n / grain.
  const size_t threads = std::max<size_t>(si.dwNumberOfProcessors, 1);
  const size_t ranges = std::min(threads, std::max<size_t>(n / std::max<size_t>(grain, 1), 1));
  if (ranges > 1) {
    ParallelJob job{&fn, n, ranges};
    if (PTP_WORK work = CreateThreadpoolWork(ParallelWork, &job, nullptr)) {
      for (size_t i = 1; i < ranges; ++i) SubmitThreadpoolWork(work);
      job.Run();
      WaitForThreadpoolWorkCallbacks(work, FALSE);
      CloseThreadpoolWork(work);
      return;
    }
  }
  fn(0, n);  // one range, or no pool to be had
}

}  // namespace kv::max
