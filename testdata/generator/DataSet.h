// Registry of the data sets that the generator can write. Each set lives in its own source file,
// records its physical model there, and registers itself with OMBRIX_DATA_SET.
#pragma once

#include <filesystem>
#include <map>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace datagen {

// Writes the set's files below dataDir and reports every file it wrote through Output::Write.
class Output {
 public:
  explicit Output(std::filesystem::path dataDir) : dataDir_(std::move(dataDir)) {}

  // Writes an uncompressed TIFF (stable bytes, so the manifest can pin them) at the path
  // relative to the data folder, creating folders as needed.
  void WriteTiff(const std::string& relativePath, const cv::Mat& image);
  // Writes a text file (a recorded truth: spot lists, model parameters).
  void WriteText(const std::string& relativePath, const std::string& text);

  const std::vector<std::string>& Written() const { return written_; }
  const std::filesystem::path& DataDir() const { return dataDir_; }

 private:
  std::filesystem::path Prepare(const std::string& relativePath);

  std::filesystem::path dataDir_;
  std::vector<std::string> written_;
};

using GenerateFn = void (*)(Output& out);

bool RegisterDataSet(const char* name, GenerateFn generate);

// Every set linked into the program, by name.
std::map<std::string, GenerateFn>& Registry();

}  // namespace datagen

#define OMBRIX_DATA_SET(name, fn) \
  static const bool ombrixDataSetRegistered_##fn = ::datagen::RegisterDataSet(name, fn)
