// The host's parallel loop. The 2023 SDK offers no parallel loop of its own (its thread tools
// only set how many threads parts of 3ds Max use), so the ranges go to the system thread pool,
// the calling thread taking its share.
#include "host/max/max_host.h"
#include "host/max/parallel_ranges.h"

namespace kv::max {

namespace {

VOID CALLBACK ParallelWork(PTP_CALLBACK_INSTANCE, PVOID job, PTP_WORK) {
  static_cast<ParallelJob*>(job)->Run();
}

}  // namespace

void MaxHost::ParallelFor(size_t n, size_t grain, host::RangeFn fn) {
  if (n == 0) return;
  SYSTEM_INFO si;
  GetSystemInfo(&si);
  const size_t ranges = RangeCount(n, grain, si.dwNumberOfProcessors);
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
