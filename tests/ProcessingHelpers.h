// Helpers shared by the processing plug-in's tests: float frames of Gaussian noise from the
// project's generator, a pair of master darks with a known dark signal, and a scratch folder that
// is removed at the end of the test. Any size from 1 x 1.
#pragma once

#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <string>

#include "Random.h"

namespace testprocessing {

// The build's UnitTestData folder, with its trailing separator.
inline const std::string kData = OMBRIX_TEST_DATA_DIR;

// CV_32F samples mean + sigma x N(0, 1), drawn row by row.
inline cv::Mat NoiseImage(int rows, int cols, double mean, double sigma, std::uint64_t seed) {
  datagen::Random rng(seed);
  cv::Mat image(rows, cols, CV_32F);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) {
      image.at<float>(y, x) = static_cast<float>(mean + sigma * rng.Normal());
    }
  }
  return image;
}

// Master darks of a sensor with a bias ramp and dark rates of 0..49 ADU/s (the hot ones high).
struct DarkPair {
  cv::Mat d1, d150;
};

inline DarkPair MakeDarks(int rows, int cols) {
  DarkPair p{cv::Mat(rows, cols, CV_16U), cv::Mat(rows, cols, CV_16U)};
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) {
      const int bias = 1000 + 3 * x - 2 * y;
      const int rate = (x * 7 + y * 13) % 50;
      p.d1.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(bias + rate);
      p.d150.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(bias + 150 * rate);
    }
  }
  return p;
}

// A folder below the system's temporary folder, empty at the start, removed at the end.
class TempFolder {
 public:
  explicit TempFolder(const std::string& name)
      : path_(std::filesystem::temp_directory_path() / ("ombrix_processing_" + name)) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TempFolder() { std::filesystem::remove_all(path_); }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string File(const std::string& name) const { return (path_ / name).string(); }
  // The folder with a trailing separator, as a data folder is given.
  std::string Path() const { return path_.string() + "/"; }

 private:
  std::filesystem::path path_;
};

}  // namespace testprocessing
