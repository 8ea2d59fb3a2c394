// Row-parallel body of the 16-bit disc median (16-bit unsigned single-channel images, any radius
// from 1). The straightforward per-pixel gather-and-select (a square-root membership test per
// window pixel, then the selection) defines the result and is the tests' oracle; operator()
// computes the same values faster.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

// Two-level histogram (256 coarse x 256 fine bins) of 16-bit samples that answers rank queries
// by walking from its previous answer, so a window sliding over smooth data costs a few steps per
// query rather than a scan of the bins.
class DiscHistogram {
 public:
  DiscHistogram() : fine_(65536, 0), coarse_(kLanes * 256, 0) {}

  // Samples are counted in one of kLanes coarse tables (lane = any value below kLanes, e.g. the
  // disc row modulo kLanes): successive updates of one coarse bin then form several short chains
  // of read-modify-writes instead of one long chain.
  static constexpr int kLanes = 4;

  void Add(unsigned short v, int lane = 0) {
    ++fine_[v];
    ++coarse_[lane * 256 + (v >> 8)];
    below_ += v < value_;
  }
  void Remove(unsigned short v, int lane = 0) {
    --fine_[v];
    --coarse_[lane * 256 + (v >> 8)];
    below_ -= v < value_;
  }
  // Remove(out, lane) and Add(in, lane) in one step.
  void Replace(unsigned short out, unsigned short in, int lane) {
    --fine_[out];
    ++fine_[in];
    --coarse_[lane * 256 + (out >> 8)];
    ++coarse_[lane * 256 + (in >> 8)];
    below_ += static_cast<int>(in < value_) - static_cast<int>(out < value_);
  }

  // The sample of rank k (0-based) among those held; k must be below their count.
  unsigned short Rank(int k);

 private:
  int Coarse(int bin) const {
    int count = 0;
    for (int lane = 0; lane < kLanes; ++lane) count += coarse_[lane * 256 + bin];
    return count;
  }

  std::vector<int> fine_;
  std::vector<int> coarse_;
  int value_ = 0;  // the last answer
  int below_ = 0;  // count of held samples below value_
};

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
        radius_(BoundedRadius(radius, width, height)),
        bitDepth_(bitDepth) {}
  ~MedianFunction_16U() override = default;

  // The disc medians of the given rows (clamped to the image), row by row through SlidingMedians.
  // Writes nothing when a step is shorter than a row or an image pointer is null.
  void operator()(const cv::Range& rows) const override;

  // Half-width of each disc row: entry dy + radius holds the largest dx with
  // sqrt(dx^2 + dy^2) - 0.5 <= radius, the disc's membership test, for dy = -radius..radius.
  static std::vector<int> DiscHalfWidths(int radius);

  // The radius that gives the same medians on a width x height image: radii beyond the image's
  // diagonal cut every disc to the whole image, so they are brought down to it (the body does
  // this itself). Keeps the work and the scratch bounded by the image, whatever the radius.
  static int BoundedRadius(int radius, int width, int height);

  // Entries a gathered disc can need on a width x height image: the disc's bounding square cut to
  // the image.
  static std::size_t ScratchSize(int radius, int width, int height);

  // The disc median at one pixel, the disc rows taken from DiscHalfWidths(radius) (no square root
  // per window pixel) and gathered into scratch (at least ScratchSize entries) in row-major order.
  // Odd counts give the true median; even counts (only where the edge cuts the disc) give the
  // entry before the middle after the selection with its top bit cleared.
  unsigned short GatheredMedianAt(int x, int y, const int* halfWidths,
                                  unsigned short* scratch) const;

  // The two halves of GatheredMedianAt: the disc of (x, y), cut at the edge, copied into scratch
  // in row-major order (returns the count), and the selection with the even-count rule
  // (cv::Exception StsBadArg for no samples).
  int GatherDisc(int x, int y, const int* halfWidths, unsigned short* scratch) const;
  static unsigned short SelectMedian(unsigned short* samples, int count);

  // Medians of row y for columns first..last (inclusive), whose discs must lie inside the image,
  // written to out[0..last - first]. hist must be empty; it is left empty.
  void InteriorMedians(int y, int first, int last, const int* halfWidths, DiscHistogram& hist,
                       unsigned short* out) const;

  // Medians of row y for columns first..last (inclusive), any row and columns of the image,
  // written to out[0..last - first]. A sliding histogram holds the disc cut to the image: it
  // answers pixels whose cut disc holds an odd count (the true median, which is every full disc
  // and about half of the cut ones); even counts are gathered into scratch (at least ScratchSize
  // entries) and selected like GatheredMedianAt. hist must be empty; it is left empty.
  void SlidingMedians(int y, int first, int last, const int* halfWidths, DiscHistogram& hist,
                      unsigned short* scratch, unsigned short* out) const;

 private:
  bool StepsValid() const;

  uchar* dstData_;
  const uchar* srcData_;
  std::uint32_t dstStep_;
  std::uint32_t srcStep_;
  int width_;
  int height_;
  int radius_;
  int bitDepth_;  // always 16; kept for the record, not read by the body
};
