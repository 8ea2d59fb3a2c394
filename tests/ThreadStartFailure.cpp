#include "ThreadStartFailure.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<int> g_allowed{-1};
std::atomic<int> g_failed{0};

using CreateFn = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

CreateFn RealCreate() {
  static const CreateFn real = reinterpret_cast<CreateFn>(dlsym(RTLD_NEXT, "pthread_create"));
  return real;
}

}  // namespace

namespace testthreads {

void FailThreadStartAfter(int allowed) { g_allowed.store(allowed); }

int FailedThreadStarts() { return g_failed.load(); }

}  // namespace testthreads

// The program's own definition comes first in symbol lookup, so std::thread starts through it.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                              void* arg) noexcept {
  int allowed = g_allowed.load();
  while (allowed >= 0) {
    if (g_allowed.compare_exchange_weak(allowed, allowed - 1)) {
      if (allowed == 0) {
        g_failed.fetch_add(1);
        return EAGAIN;
      }
      break;
    }
  }
  return RealCreate()(thread, attr, start, arg);
}
