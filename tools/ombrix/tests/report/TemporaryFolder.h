// A fresh, empty folder for one test's output, removed with everything in it at the end of the
// test. Also lists a folder's entries, to show that a failed write left nothing behind.
#pragma once

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace ombrix_tool_test {

class CTemporaryFolder {
 public:
  CTemporaryFolder() {
    static std::atomic<unsigned> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            ("ombrix-report-test-" + std::to_string(static_cast<long>(::getpid())) + "-" +
             std::to_string(counter.fetch_add(1)));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~CTemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  CTemporaryFolder(const CTemporaryFolder&) = delete;
  CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;

  // The path of name inside the folder.
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace ombrix_tool_test
