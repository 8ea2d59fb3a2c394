// The callback registry: name order of the calls, the empty callable, exceptions from a callable,
// and several threads registering, withdrawing and notifying at once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "callback/Callback.h"

namespace {

using Registry = CCallback<std::function<void(const int&, float*)>>;

// Stores value * factor into the result and appends the name to the call log.
Registry::Function Writer(std::vector<std::string>& calls, const std::string& name, float factor) {
  return [&calls, name, factor](const int& value, float* result) {
    calls.push_back(name);
    *result = static_cast<float>(value) * factor;
  };
}

// Registers a Writer for each (name, factor), in the order given.
void RegisterWriters(Registry& registry, std::vector<std::string>& calls,
                     const std::vector<std::pair<std::string, float>>& writers) {
  for (const auto& [name, factor] : writers) registry.Register(name, Writer(calls, name, factor));
}

}  // namespace

TEST(Callback, NotifyCallsInAscendingByteOrderOfNames) {
  Registry registry;
  std::vector<std::string> calls;
  float result = 0.0f;
  RegisterWriters(registry, calls,
                  {{"b", 1.0f}, {"ab", 2.0f}, {"a", 3.0f}, {"B", 4.0f}, {"b2", 5.0f}});
  registry.Notify(2, &result);
  // Upper case sorts before lower case and a proper prefix before its extensions.
  EXPECT_EQ(calls, (std::vector<std::string>{"B", "a", "ab", "b", "b2"}));
  // Every callable got the same pointer; the greatest name wrote last.
  EXPECT_EQ(result, 10.0f);
}

TEST(Callback, GreatestNameValueStandsWhateverTheRegistrationOrder) {
  Registry registry;
  std::vector<std::string> calls;
  float result = 0.0f;
  RegisterWriters(registry, calls, {{"f2", 2.5f}, {"f1", 1.5f}});
  registry.Notify(2, &result);
  EXPECT_EQ(result, 5.0f);
  registry.UnRegister("f2");
  registry.Notify(2, &result);
  EXPECT_EQ(result, 3.0f);
}

TEST(Callback, ArgumentsArePassedThrough) {
  Registry registry;
  const int* seenValue = nullptr;
  float* seenResult = nullptr;
  registry.Register("x", [&](const int& value, float* result) {
    seenValue = &value;
    seenResult = result;
  });
  const int value = 7;
  float result = 0.0f;
  registry.Notify(value, &result);
  EXPECT_EQ(seenValue, &value);
  EXPECT_EQ(seenResult, &result);
  registry.Notify(value, nullptr);
  EXPECT_EQ(seenResult, nullptr);
}

TEST(Callback, EmptyCallableIsIgnored) {
  Registry registry;
  registry.Register("empty", Registry::Function());
  EXPECT_EQ(registry.Size(), 0u);
  float result = 1.0f;
  EXPECT_NO_THROW(registry.Notify(3, &result));
  EXPECT_EQ(result, 1.0f);
}

TEST(Callback, EmptyCallableDoesNotReplaceRegisteredOne) {
  Registry registry;
  std::vector<std::string> calls;
  registry.Register("kept", Writer(calls, "kept", 2.0f));
  registry.Register("kept", Registry::Function());
  EXPECT_EQ(registry.Size(), 1u);
  float result = 0.0f;
  registry.Notify(4, &result);
  EXPECT_EQ(result, 8.0f);
}

TEST(Callback, SameNameOverwritesCallable) {
  Registry registry;
  std::vector<std::string> calls;
  registry.Register("f", Writer(calls, "first", 1.0f));
  registry.Register("f", Writer(calls, "second", 10.0f));
  EXPECT_EQ(registry.Size(), 1u);
  float result = 0.0f;
  registry.Notify(3, &result);
  EXPECT_EQ(calls, (std::vector<std::string>{"second"}));
  EXPECT_EQ(result, 30.0f);
}

TEST(Callback, UnRegisterOfUnknownNameIsIgnored) {
  Registry registry;
  std::vector<std::string> calls;
  registry.Register("f1", Writer(calls, "f1", 1.0f));
  registry.UnRegister("f");
  registry.UnRegister("f10");
  registry.UnRegister("");
  EXPECT_EQ(registry.Size(), 1u);
}

TEST(Callback, ExceptionPassesOutWithLockReleasedAndLaterCallablesSkipped) {
  Registry registry;
  std::vector<std::string> calls;
  registry.Register("a", Writer(calls, "a", 1.0f));
  registry.Register("b", [&calls](const int&, float*) {
    calls.push_back("b");
    throw std::runtime_error("callable failed");
  });
  registry.Register("c", Writer(calls, "c", 3.0f));
  float result = 0.0f;
  EXPECT_THROW(registry.Notify(1, &result), std::runtime_error);
  EXPECT_EQ(calls, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(result, 1.0f);

  // Another thread must get the lock at once; a lock left held would block it.
  std::promise<void> done;
  std::future<void> finished = done.get_future();
  std::thread other([&registry, &done] {
    registry.UnRegister("b");
    done.set_value();
  });
  const bool released = finished.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  if (released) {
    other.join();
  } else {
    other.detach();
  }
  ASSERT_TRUE(released);
  calls.clear();
  registry.Notify(2, &result);
  EXPECT_EQ(calls, (std::vector<std::string>{"a", "c"}));
  EXPECT_EQ(result, 6.0f);
}

TEST(Callback, RegisterWaitsForRunningNotify) {
  Registry registry;
  std::atomic<bool> entered{false};
  std::atomic<bool> returned{false};
  registry.Register("slow", [&](const int&, float*) {
    entered = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    returned = true;
  });
  std::thread notifier([&registry] {
    float result = 0.0f;
    registry.Notify(1, &result);
  });
  while (!entered) std::this_thread::yield();
  registry.Register("late", [](const int&, float*) {});
  // Register could only take the lock once the callable had returned.
  EXPECT_TRUE(returned.load());
  notifier.join();
  EXPECT_EQ(registry.Size(), 2u);
}

TEST(Callback, ConcurrentRegisterUnRegisterNotifyLoseNoEntry) {
  Registry registry;
  constexpr int kWriters = 4;
  constexpr int kNamesPerWriter = 200;
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
  std::atomic<bool> stop{false};

  auto callable = [&running, &overlapped](const int&, float* result) {
    if (running.fetch_add(1) != 0) overlapped = true;
    *result += 1.0f;
    running.fetch_sub(1);
  };

  std::vector<std::thread> threads;
  for (int w = 0; w < kWriters; ++w) {
    threads.emplace_back([&, w] {
      for (int i = 0; i < kNamesPerWriter; ++i) {
        const std::string name = "w" + std::to_string(w) + "_" + std::to_string(i);
        registry.Register(name, callable);
        // Every odd name is withdrawn again, every third re-registered over itself.
        if (i % 3 == 0) registry.Register(name, callable);
        if (i % 2 == 1) registry.UnRegister(name);
      }
    });
  }
  std::vector<float> lastCounts(2, 0.0f);
  for (int n = 0; n < 2; ++n) {
    threads.emplace_back([&, n] {
      while (!stop) {
        float count = 0.0f;
        registry.Notify(0, &count);
        lastCounts[static_cast<std::size_t>(n)] = count;
      }
    });
  }
  for (int w = 0; w < kWriters; ++w) threads[static_cast<std::size_t>(w)].join();
  stop = true;
  for (std::size_t t = kWriters; t < threads.size(); ++t) threads[t].join();

  const std::size_t expected = kWriters * (kNamesPerWriter / 2);
  EXPECT_EQ(registry.Size(), expected);
  EXPECT_FALSE(overlapped.load());
  float count = 0.0f;
  registry.Notify(0, &count);
  EXPECT_EQ(count, static_cast<float>(expected));
  for (float seen : lastCounts) EXPECT_LE(seen, static_cast<float>(kWriters * kNamesPerWriter));
}
