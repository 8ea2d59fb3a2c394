// Row-parallel body of the 16-bit disc median. The straightforward per-pixel gather-and-select
// (MedianAt) is the definition of the result and stays available as the oracle for tests.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

class MedianFunction_16U : public cv::ParallelLoopBody {
 public:
  MedianFunction_16U(uchar* dstData, const uchar* srcData, std::uint32_t dstStep,
                     std::uint32_t srcStep, int width, int height, int radius, int bitDepth = 16)
      : dstData_(dstData),
        srcData_(srcData),
        dstStep_(dstStep),
        srcStep_(srcStep),
        width_(width),
        height_(height),
        radius_(radius),
        bitDepth_(bitDepth) {}
  ~MedianFunction_16U() override = default;

  void operator()(const cv::Range& rows) const override;

  // The disc median at one pixel by gathering the disc into scratch (at least (2r+1)^2 entries)
  // and selecting. Odd counts give the true median; even counts (only where the edge cuts the
  // disc) give the entry before the middle after the selection, doubled and halved in 16 bits,
  // which clears its top bit.
  unsigned short MedianAt(int x, int y, unsigned short* scratch) const;

  // Runs the straightforward per-pixel body over the given rows: the reference implementation.
  void ReferenceRows(const cv::Range& rows) const;

 private:
  uchar* dstData_;
  const uchar* srcData_;
  std::uint32_t dstStep_;
  std::uint32_t srcStep_;
  int width_;
  int height_;
  int radius_;
  int bitDepth_;  // always 16; kept for the record, not read by the body
};
