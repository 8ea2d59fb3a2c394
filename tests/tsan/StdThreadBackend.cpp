#include "StdThreadBackend.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace {
// 0 on threads the backend did not start, else 1 + the worker's index.
thread_local int t_workerNumber = 0;
}  // namespace

void CStdThreadBackend::parallel_for(int tasks, FN_parallel_for_body_cb_t body, void* data) {
  if (tasks <= 0) return;
  const int count = std::min(tasks, threads_.load());
  std::atomic<int> next{0};
  std::vector<std::thread> workers;
  workers.reserve(static_cast<std::size_t>(count));
  for (int w = 0; w < count; ++w) {
    workers.emplace_back([&next, tasks, body, data, w] {
      t_workerNumber = w + 1;
      for (int task = next++; task < tasks; task = next++) body(task, task + 1, data);
    });
  }
  for (std::thread& worker : workers) worker.join();
}

int CStdThreadBackend::getThreadNum() const { return t_workerNumber == 0 ? 0 : t_workerNumber - 1; }

int CStdThreadBackend::setNumThreads(int threads) {
  return threads_.exchange(threads < 1 ? 1 : threads);
}
