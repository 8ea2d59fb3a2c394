#include "OutputFolder.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <system_error>

#include "ToolError.h"

#if defined(_WIN32)
#include <process.h>
#define OMBRIX_GETPID _getpid
#else
#include <unistd.h>
#define OMBRIX_GETPID getpid
#endif

namespace fs = std::filesystem;

namespace ombrix_tool {

namespace {

std::atomic<unsigned> temporaryCounter{0};

}  // namespace

OutputFolder::OutputFolder(const std::string& requested, const std::string& defaultName, bool force,
                           const std::vector<std::string>& inputs)
    : path_(requested.empty() ? defaultName : requested), inputs_(inputs) {
  std::error_code code;
  const bool exists = fs::exists(path_, code);
  if (exists && !fs::is_directory(path_, code)) {
    throw UsageError(path_ + ": output folder is an existing file");
  }
  if (exists && !force) {
    throw UsageError(path_ + ": output folder already exists (use --force to write into it)");
  }
  if (!exists) {
    fs::create_directories(path_, code);
    if (code) throw UsageError(path_ + ": cannot create output folder: " + code.message());
  }
  // Probe: a folder that exists but refuses files is found now, before any work is done.
  const std::string probe = TemporaryFor("probe.txt");
  {
    std::ofstream file(probe);
    if (!file) throw UsageError(path_ + ": output folder is not writable");
  }
  fs::remove(probe, code);
}

std::string OutputFolder::File(const std::string& name) const {
  return (fs::path(path_) / name).string();
}

std::string OutputFolder::TemporaryFor(const std::string& name) const {
  // The extension stays last: OpenCV and the plot writers pick the format from it.
  const std::string prefix = ".partial-" + std::to_string(OMBRIX_GETPID()) + "-" +
                             std::to_string(temporaryCounter.fetch_add(1)) + "-";
  return (fs::path(path_) / (prefix + name)).string();
}

void OutputFolder::RefuseInput(const std::string& finalPath) const {
  std::error_code code;
  for (const std::string& input : inputs_) {
    if (fs::exists(finalPath, code) && fs::equivalent(finalPath, input, code)) {
      throw UsageError(finalPath + ": is an input of this run and is never written");
    }
  }
}

std::string OutputFolder::Commit(const std::string& temporary, const std::string& name) const {
  const std::string finalPath = File(name);
  std::error_code code;
  try {
    RefuseInput(finalPath);
  } catch (const ToolError&) {
    fs::remove(temporary, code);
    throw;
  }
  fs::rename(temporary, finalPath, code);
  if (code) {
    fs::remove(temporary, code);
    throw UsageError(finalPath + ": cannot be written: " + code.message());
  }
  return finalPath;
}

std::string OutputFolder::WriteText(const std::string& name, const std::string& text) const {
  const std::string temporary = TemporaryFor(name);
  {
    std::ofstream file(temporary, std::ios::binary);
    file << text;
    file.flush();
    if (!file) {
      std::error_code code;
      fs::remove(temporary, code);
      throw UsageError(File(name) + ": cannot be written");
    }
  }
  return Commit(temporary, name);
}

std::string OutputFolder::WriteImage(const std::string& name, const cv::Mat& image) const {
  const std::string temporary = TemporaryFor(name);
  bool written = false;
  try {
    written = cv::imwrite(temporary, image);
  } catch (const cv::Exception&) {
    written = false;
  }
  if (!written) {
    std::error_code code;
    fs::remove(temporary, code);
    throw UsageError(File(name) + ": cannot be written");
  }
  return Commit(temporary, name);
}

}  // namespace ombrix_tool
