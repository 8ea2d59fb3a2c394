#include "AtomicFile.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace ombrix_tool {

namespace {

std::string UniqueSuffix() {
  // Process id and a counter: two threads, or two tools writing into one folder, never share a
  // temporary name.
  static std::atomic<unsigned> counter{0};
  return ".partial-" + std::to_string(static_cast<long>(::getpid())) + "-" +
         std::to_string(counter.fetch_add(1));
}

}  // namespace

CAtomicFile::CAtomicFile(std::string path)
    : path_(std::move(path)), temporaryPath_(path_ + UniqueSuffix()) {
  if (path_.empty()) throw std::runtime_error(": empty output path");
  std::FILE* file = std::fopen(temporaryPath_.c_str(), "wb");
  if (file == nullptr) {
    throw std::runtime_error(path_ + ": cannot write (" + std::strerror(errno) + ")");
  }
  std::fclose(file);
}

CAtomicFile::~CAtomicFile() {
  if (!committed_) std::remove(temporaryPath_.c_str());
}

void CAtomicFile::Write(const std::string& bytes) const {
  std::FILE* file = std::fopen(temporaryPath_.c_str(), "wb");
  if (file == nullptr) {
    throw std::runtime_error(path_ + ": cannot write (" + std::strerror(errno) + ")");
  }
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  const int error = errno;
  if (std::fclose(file) != 0 || !written) {
    throw std::runtime_error(path_ + ": cannot write (" + std::strerror(written ? errno : error) +
                             ")");
  }
}

void CAtomicFile::Commit() {
  std::ifstream check(temporaryPath_, std::ios::binary | std::ios::ate);
  if (!check || check.tellg() <= 0) {
    throw std::runtime_error(path_ + ": nothing was written");
  }
  check.close();
  if (std::rename(temporaryPath_.c_str(), path_.c_str()) != 0) {
    throw std::runtime_error(path_ + ": cannot rename the finished file into place (" +
                             std::strerror(errno) + ")");
  }
  committed_ = true;
}

}  // namespace ombrix_tool
