// Frames of a series decoded ahead of their use on worker threads and handed over strictly in list
// order: reading, hashing and decoding (the slow part of a pass over TIFF files) overlap the
// per-frame work, while at most `ahead` + 1 frames are held at once, so memory stays proportional
// to one frame.
#pragma once

#include <cstddef>
#include <functional>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace ombrix_tool {

class FrameReader {
 public:
  // ahead: frames decoded in advance (at least 1); hash: also compute each file's SHA-256.
  FrameReader(const std::vector<std::string>& files, std::size_t ahead, bool hash);

  // consume(index, frame, sha256) for every file in order (sha256 empty without hash). A file
  // that cannot be read throws its ToolError at its turn, after the frames before it.
  void ForEach(
      const std::function<void(std::size_t, const cv::Mat&, const std::string&)>& consume) const;

 private:
  std::vector<std::string> files_;
  std::size_t ahead_;
  bool hash_;
};

}  // namespace ombrix_tool
