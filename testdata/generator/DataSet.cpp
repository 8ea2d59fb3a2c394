#include "DataSet.h"

#include <fstream>
#include <map>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

namespace datagen {

std::map<std::string, GenerateFn>& Registry() {
  static std::map<std::string, GenerateFn> registry;
  return registry;
}

bool RegisterDataSet(const char* name, GenerateFn generate) {
  Registry()[name] = generate;
  return true;
}

std::filesystem::path Output::Prepare(const std::string& relativePath) {
  const std::filesystem::path path = dataDir_ / relativePath;
  std::filesystem::create_directories(path.parent_path());
  written_.push_back(relativePath);
  return path;
}

void Output::WriteTiff(const std::string& relativePath, const cv::Mat& image) {
  const std::filesystem::path path = Prepare(relativePath);
  const std::vector<int> params = {cv::IMWRITE_TIFF_COMPRESSION, 1};
  if (!cv::imwrite(path.string(), image, params)) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

void Output::WriteText(const std::string& relativePath, const std::string& text) {
  const std::filesystem::path path = Prepare(relativePath);
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace datagen
