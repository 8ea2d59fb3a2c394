// The folder of one plug-in loader or factory test: fresh for each test, under the system's
// temporary folder, holding the copies of test plug-ins the test makes under names of its choosing;
// the working directory is restored and the folder removed afterwards. Needs no OpenCV, so that the
// Windows build's tests use it too.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#if defined(_WIN32)
#include <process.h>
#else
#include <unistd.h>
#endif

#include "PluginEvents.h"

class PluginTestFolder : public ::testing::Test {
 protected:
  // The folder is named prefix, the process id and the test's name: the process id keeps
  // concurrent runs from different build trees apart.
  explicit PluginTestFolder(std::string prefix) : prefix_(std::move(prefix)) {}

  void SetUp() override {
    previous_ = std::filesystem::current_path();
    folder_ = std::filesystem::temp_directory_path() /
              (prefix_ + std::to_string(ProcessId()) + "_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    plugin_events::Take();
  }

  void TearDown() override {
    std::filesystem::current_path(previous_);
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  std::filesystem::path previous_;
  std::filesystem::path folder_;

 private:
  static long ProcessId() {
#if defined(_WIN32)
    return static_cast<long>(_getpid());
#else
    return static_cast<long>(getpid());
#endif
  }

  std::string prefix_;
};
