// A parallel backend for OpenCV's cv::parallel_for_ made of plain std::thread workers, installed
// with cv::parallel::setParallelForBackend. OpenCV's own pool (TBB or its pthreads pool, built
// without ThreadSanitizer) hides the synchronisation of its workers from the sanitizer; with this
// backend every thread that runs our loop bodies is one ThreadSanitizer sees start and join.
#pragma once

#include <atomic>
#include <opencv2/core/parallel/parallel_backend.hpp>

class CStdThreadBackend : public cv::parallel::ParallelForAPI {
 public:
  explicit CStdThreadBackend(int threads) : threads_(threads < 1 ? 1 : threads) {}
  ~CStdThreadBackend() override = default;

  // Runs the tasks on min(threads, tasks) new threads, the calling thread waiting; each thread
  // takes the next task index until none is left.
  void parallel_for(int tasks, FN_parallel_for_body_cb_t body, void* data) override;
  int getThreadNum() const override;
  int getNumThreads() const override { return threads_.load(); }
  int setNumThreads(int threads) override;
  const char* getName() const override { return "std::thread"; }

 private:
  std::atomic<int> threads_;
};
