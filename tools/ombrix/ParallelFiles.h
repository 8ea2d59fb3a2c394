// Independent files processed in parallel on all cores: each index is handed to exactly one
// worker; results go to per-index slots, so the output order never depends on the scheduling.
// The first error (in index order) is rethrown after every worker has finished.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <thread>
#include <vector>

namespace ombrix_tool {

// workers: 0 for one per core (what the tool uses), else that many.
inline void ForEachFile(std::size_t count, const std::function<void(std::size_t)>& work,
                        std::size_t workerCount = 0) {
  const std::size_t wanted =
      workerCount > 0 ? workerCount : std::max(1u, std::thread::hardware_concurrency());
  const std::size_t workers = std::min<std::size_t>(count, wanted);
  std::vector<std::exception_ptr> errors(count);
  std::atomic<std::size_t> next{0};
  auto run = [&]() {
    for (std::size_t i = next.fetch_add(1); i < count; i = next.fetch_add(1)) {
      try {
        work(i);
      } catch (...) {
        errors[i] = std::current_exception();
      }
    }
  };
  std::vector<std::thread> threads;
  for (std::size_t w = 1; w < workers; ++w) threads.emplace_back(run);
  run();
  for (std::thread& thread : threads) thread.join();
  for (const std::exception_ptr& error : errors) {
    if (error) std::rethrow_exception(error);
  }
}

}  // namespace ombrix_tool
