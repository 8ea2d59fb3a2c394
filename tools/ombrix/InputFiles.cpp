#include "InputFiles.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <system_error>

#include "Sha256.h"
#include "ToolError.h"

namespace fs = std::filesystem;

namespace ombrix_tool {

namespace {

bool IsImageFileName(const fs::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == ".tif" || extension == ".tiff" || extension == ".png";
}

}  // namespace

void CheckImageFile(const std::string& path) {
  std::error_code code;
  const fs::file_status status = fs::status(path, code);
  if (code || !fs::exists(status)) throw UsageError(path + ": no such file");
  if (fs::is_directory(status)) throw UsageError(path + ": is a folder, not an image file");
  bool known = false;
  try {
    known = cv::haveImageReader(path);
  } catch (const cv::Exception&) {
    known = false;
  }
  if (!known) throw UsageError(path + ": cannot be read as an image");
}

cv::Mat ReadImage(const std::string& path) {
  CheckImageFile(path);
  cv::Mat image;
  try {
    image = cv::imread(path, cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception&) {
    image.release();
  }
  if (image.empty()) throw UsageError(path + ": cannot be read as an image");
  return image;
}

cv::Mat ReadImageBuffered(const std::string& path, std::vector<char>& bytes, std::string* sha256) {
  CheckImageFile(path);
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) throw UsageError(path + ": cannot be read");
  const std::streamoff size = file.tellg();
  // imdecode takes the bytes as one row of int columns.
  if (size < 0 || size > std::numeric_limits<int>::max())
    throw UsageError(path + ": cannot be read");
  bytes.resize(static_cast<std::size_t>(size));
  file.seekg(0);
  std::unique_ptr<Sha256Digest> digest;
  if (sha256 != nullptr) digest = std::make_unique<Sha256Digest>();
  constexpr std::streamoff kChunk = std::streamoff(1) << 20;
  for (std::streamoff done = 0; done < size;) {
    const std::streamoff count = std::min(kChunk, size - done);
    if (!file.read(bytes.data() + done, count)) throw UsageError(path + ": read error");
    if (digest) digest->Update(bytes.data() + done, static_cast<std::size_t>(count));
    done += count;
  }
  if (digest) *sha256 = digest->Finish();
  cv::Mat image;
  try {
    const cv::Mat buffer(1, static_cast<int>(bytes.size()), CV_8U, bytes.data());
    if (!bytes.empty()) image = cv::imdecode(buffer, cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception&) {
    image.release();
  }
  if (image.empty()) throw UsageError(path + ": cannot be read as an image");
  return image;
}

void RequireSingleChannel(const cv::Mat& image, const std::string& path,
                          const std::vector<int>& depths) {
  std::string accepted;
  for (std::size_t i = 0; i < depths.size(); ++i) {
    if (i > 0) accepted += i + 1 == depths.size() ? " or " : ", ";
    accepted += DepthName(depths[i]);
  }
  if (image.channels() != 1) {
    throw UsageError(path + ": unsupported image with " + std::to_string(image.channels()) +
                     " channels (needs one channel, " + accepted + ")");
  }
  if (std::find(depths.begin(), depths.end(), image.depth()) == depths.end()) {
    throw UsageError(path + ": unsupported depth " + DepthName(image.depth()) + " (needs " +
                     accepted + ")");
  }
}

std::vector<std::string> ExpandFrameArguments(const std::vector<std::string>& arguments) {
  std::vector<std::string> frames;
  for (const std::string& argument : arguments) {
    std::error_code code;
    if (argument.find_first_of("*?") != std::string::npos) {
      std::vector<cv::String> matches;
      try {
        cv::glob(argument, matches, false);
      } catch (const cv::Exception&) {
        matches.clear();
      }
      if (matches.empty()) throw UsageError(argument + ": the pattern matches no file");
      std::sort(matches.begin(), matches.end());
      frames.insert(frames.end(), matches.begin(), matches.end());
    } else if (fs::is_directory(argument, code)) {
      std::vector<std::string> files;
      for (const fs::directory_entry& entry : fs::directory_iterator(argument, code)) {
        if (entry.is_regular_file(code) && IsImageFileName(entry.path())) {
          files.push_back(entry.path().string());
        }
      }
      if (code) throw UsageError(argument + ": the folder cannot be listed");
      if (files.empty()) throw UsageError(argument + ": the folder holds no frames (.tif, .png)");
      std::sort(files.begin(), files.end());
      frames.insert(frames.end(), files.begin(), files.end());
    } else if (fs::exists(argument, code)) {
      frames.push_back(argument);
    } else {
      throw UsageError(argument + ": no such file or folder");
    }
  }
  if (frames.empty()) throw UsageError("FRAMES: no frames given");
  return frames;
}

std::string DepthName(int depth) {
  switch (depth) {
    case CV_8U:
      return "8-bit unsigned";
    case CV_8S:
      return "8-bit signed";
    case CV_16U:
      return "16-bit unsigned";
    case CV_16S:
      return "16-bit signed";
    case CV_32S:
      return "32-bit signed";
    case CV_32F:
      return "32-bit float";
    case CV_64F:
      return "64-bit float";
    case CV_16F:
      return "16-bit float";
    default:
      return "unknown depth";
  }
}

std::string FileStem(const std::string& path) { return fs::path(path).stem().string(); }

std::vector<std::string> OutputStems(const std::vector<std::string>& inputs) {
  std::vector<std::string> stems;
  for (const std::string& input : inputs) {
    const std::string stem = FileStem(input);
    std::string candidate = stem;
    for (int n = 2; std::find(stems.begin(), stems.end(), candidate) != stems.end(); ++n) {
      candidate = stem + "_" + std::to_string(n);
    }
    stems.push_back(candidate);
  }
  return stems;
}

std::string InputName(const std::string& argument) {
  fs::path path(argument);
  while (!path.empty() && !path.has_filename() && path.has_parent_path() &&
         path.parent_path() != path) {
    path = path.parent_path();
  }
  if (argument.find_first_of("*?") != std::string::npos) path = path.parent_path();
  std::error_code code;
  std::string name = fs::is_directory(path, code) ? path.filename().string() : path.stem().string();
  if (name.empty() || name == "." || name == "..") {
    name = fs::absolute(path, code).lexically_normal().filename().string();
  }
  return name.empty() ? std::string("ombrix") : name;
}

}  // namespace ombrix_tool
