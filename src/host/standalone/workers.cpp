// The standalone host's parallel-for: oneTBB's work-stealing loop inside an arena whose size
// the tool and the tests choose.
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>

#include "host/standalone/scene.h"

namespace kv::standalone {

struct Scene::Workers {
  int threads = 0;  // 0: every core
  tbb::task_arena arena;
  explicit Workers(int n) : threads(n), arena(n > 0 ? n : tbb::task_arena::automatic) {}
};

void Scene::WorkersDeleter::operator()(Workers* w) const {
  delete w;
}

void Scene::SetThreadCount(int n) {
  n = std::max(n, 0);
  if (workers_ && workers_->threads == n) return;
  workers_.reset(new Workers(n));
}

int Scene::ThreadCount() const {
  if (workers_ && workers_->threads > 0) return workers_->threads;
  return tbb::this_task_arena::max_concurrency();
}

void Scene::ParallelFor(size_t n, size_t grain, host::RangeFn fn) {
  if (n == 0) return;
  grain = std::max<size_t>(grain, 1);
  // Too little work to share, or nobody to share it with: no task is made.
  if (n <= grain || ThreadCount() == 1) {
    fn(0, n);
    return;
  }
  if (!workers_) workers_.reset(new Workers(0));
  // A range is split while it holds more than its grain, into halves: 2 grain - 1 keeps
  // every half at grain items or more.
  workers_->arena.execute([&] {
    tbb::parallel_for(tbb::blocked_range<size_t>(0, n, 2 * grain - 1),
                      [&](const tbb::blocked_range<size_t>& r) { fn(r.begin(), r.end()); });
  });
}

}  // namespace kv::standalone
