// An output file that appears complete or not at all: the writer fills a temporary file next to
// the target (same folder, so the final rename is atomic) and Commit renames it into place. Any
// target path; errors name the target path.
#pragma once

#include <string>

namespace ombrix_tool {

class CAtomicFile {
 public:
  // Creates the empty temporary file, so that an unwritable folder is reported here, before any
  // work: std::runtime_error("<path>: <reason>").
  explicit CAtomicFile(std::string path);
  // Removes the temporary file unless Commit succeeded.
  ~CAtomicFile();
  CAtomicFile(const CAtomicFile&) = delete;
  CAtomicFile& operator=(const CAtomicFile&) = delete;

  const std::string& Path() const { return path_; }
  const std::string& TemporaryPath() const { return temporaryPath_; }

  // Writes bytes to the temporary file, replacing what it held.
  void Write(const std::string& bytes) const;
  // Renames the temporary file to the target; refuses an empty temporary file, which means the
  // writer failed.
  void Commit();

 private:
  std::string path_;
  std::string temporaryPath_;
  bool committed_ = false;
};

}  // namespace ombrix_tool
