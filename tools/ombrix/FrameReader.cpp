#include "FrameReader.h"

#include <algorithm>
#include <deque>
#include <future>
#include <utility>

#include "InputFiles.h"

namespace ombrix_tool {

namespace {

struct DecodedFrame {
  cv::Mat image;
  std::string sha256;
};

}  // namespace

FrameReader::FrameReader(const std::vector<std::string>& files, std::size_t ahead, bool hash)
    : files_(files), ahead_(std::max<std::size_t>(1, ahead)), hash_(hash) {}

void FrameReader::ForEach(
    const std::function<void(std::size_t, const cv::Mat&, const std::string&)>& consume) const {
  std::deque<std::future<DecodedFrame>> pending;
  std::size_t next = 0;
  auto launch = [&]() {
    const std::string path = files_[next++];
    const bool hash = hash_;
    pending.push_back(std::async(std::launch::async, [path, hash]() {
      DecodedFrame frame;
      frame.image = hash ? ReadImageHashed(path, frame.sha256) : ReadImage(path);
      return frame;
    }));
  };
  try {
    for (std::size_t index = 0; index < files_.size(); ++index) {
      while (next < files_.size() && pending.size() < ahead_) launch();
      DecodedFrame frame = pending.front().get();
      pending.pop_front();
      consume(index, frame.image, frame.sha256);
    }
  } catch (...) {
    // The decoders still running finish before the exception leaves (their futures wait).
    for (std::future<DecodedFrame>& future : pending) future.wait();
    throw;
  }
}

}  // namespace ombrix_tool
