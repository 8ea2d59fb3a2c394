// The tool's frame reader: frames handed over in list order whatever the number decoded ahead,
// each with its file's SHA-256, frames a consumer keeps left intact while later files are read
// into the reused buffers, and a bad file reported at its turn. The reference is cv::imread and
// Sha256OfFile on the same files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "FrameReader.h"
#include "InputFiles.h"
#include "Random.h"
#include "Sha256.h"
#include "ToolError.h"
#include "ToolRunner.h"

namespace {

using namespace ombrix_tool;
using tooltest::Scratch;
namespace fs = std::filesystem;

// Frames of sizes that shrink and grow again, so that a reused buffer is both too large and too
// small for the next file, in 16 and 8 bits, one of them larger than a read chunk (1 MiB).
std::vector<std::string> WriteFrames(const fs::path& folder) {
  const cv::Size sizes[] = {{64, 48}, {200, 150},  {31, 17},  {200, 150},
                            {1, 1},   {1600, 900}, {129, 65}, {64, 48}};
  datagen::Random random(77);
  std::vector<std::string> files;
  int k = 0;
  for (const cv::Size& size : sizes) {
    cv::Mat frame(size, k % 3 == 2 ? CV_8U : CV_16U);
    for (int y = 0; y < frame.rows; ++y) {
      for (int x = 0; x < frame.cols; ++x) {
        if (frame.depth() == CV_8U)
          frame.at<std::uint8_t>(y, x) = static_cast<std::uint8_t>(random.Int(0, 255));
        else
          frame.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(random.Int(0, 65535));
      }
    }
    const std::string name = "frame" + std::to_string(k) + (k % 2 == 0 ? ".tif" : ".png");
    files.push_back((folder / name).string());
    EXPECT_TRUE(cv::imwrite(files.back(), frame));
    ++k;
  }
  return files;
}

bool SameImage(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

class FrameReaderAhead : public testing::TestWithParam<int> {};

TEST_P(FrameReaderAhead, HandsOverEveryFrameInOrderWithItsDigest) {
  const fs::path folder = Scratch("FrameReaderAhead_InOrder_" + std::to_string(GetParam()));
  const std::vector<std::string> files = WriteFrames(folder);
  for (const bool hash : {true, false}) {
    std::vector<std::size_t> order;
    FrameReader(files, static_cast<std::size_t>(GetParam()), hash)
        .ForEach([&](std::size_t i, const cv::Mat& frame, const std::string& sha256) {
          order.push_back(i);
          EXPECT_TRUE(SameImage(frame, cv::imread(files[i], cv::IMREAD_UNCHANGED))) << files[i];
          EXPECT_EQ(sha256, hash ? Sha256OfFile(files[i]) : std::string()) << files[i];
        });
    ASSERT_EQ(order.size(), files.size());
    for (std::size_t i = 0; i < order.size(); ++i) EXPECT_EQ(order[i], i);
  }
}

TEST_P(FrameReaderAhead, FramesTheConsumerKeepsAreNotOverwritten) {
  const fs::path folder = Scratch("FrameReaderAhead_Kept_" + std::to_string(GetParam()));
  const std::vector<std::string> files = WriteFrames(folder);
  std::vector<cv::Mat> kept;  // shallow copies, as CTemporalNoise keeps its frames
  FrameReader(files, static_cast<std::size_t>(GetParam()), true)
      .ForEach(
          [&](std::size_t, const cv::Mat& frame, const std::string&) { kept.push_back(frame); });
  ASSERT_EQ(kept.size(), files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    EXPECT_TRUE(SameImage(kept[i], cv::imread(files[i], cv::IMREAD_UNCHANGED))) << files[i];
  }
}

TEST_P(FrameReaderAhead, BadFileFailsAtItsTurnAfterTheFramesBeforeIt) {
  const fs::path folder = Scratch("FrameReaderAhead_Bad_" + std::to_string(GetParam()));
  std::vector<std::string> files = WriteFrames(folder);
  // A TIFF signature followed by garbage: known format, undecodable.
  const std::string bad = (folder / "broken.tif").string();
  {
    std::ofstream out(bad, std::ios::binary);
    out << "II*" << '\0' << std::string(100, 'x');
  }
  files.insert(files.begin() + 3, bad);
  std::vector<std::size_t> consumed;
  try {
    FrameReader(files, static_cast<std::size_t>(GetParam()), true)
        .ForEach([&](std::size_t i, const cv::Mat&, const std::string&) { consumed.push_back(i); });
    FAIL() << "the broken file was accepted";
  } catch (const ToolError& e) {
    EXPECT_EQ(std::string(e.what()), bad + ": cannot be read as an image");
    EXPECT_EQ(e.ExitCode(), 2);
  }
  EXPECT_EQ(consumed, (std::vector<std::size_t>{0, 1, 2}));
}

INSTANTIATE_TEST_SUITE_P(Ahead, FrameReaderAhead, testing::Values(1, 2, 3, 16));

TEST(FrameReaderBuffer, ReusedBufferGivesEachFileItsOwnImageAndDigest) {
  const fs::path folder = Scratch("FrameReaderBuffer_Reused");
  const std::vector<std::string> files = WriteFrames(folder);
  std::uintmax_t largest = 0;
  for (const std::string& file : files) largest = std::max(largest, fs::file_size(file));
  ASSERT_GT(largest, std::uintmax_t(1) << 20) << "no file spans two read chunks";
  std::vector<char> bytes;
  for (const std::string& file : files) {
    std::string sha256 = "unchanged";
    const cv::Mat plain = ReadImageBuffered(file, bytes, nullptr);
    EXPECT_TRUE(SameImage(plain, cv::imread(file, cv::IMREAD_UNCHANGED))) << file;
    const cv::Mat hashed = ReadImageBuffered(file, bytes, &sha256);
    EXPECT_TRUE(SameImage(hashed, plain)) << file;
    EXPECT_EQ(sha256, Sha256OfFile(file)) << file;
    EXPECT_EQ(bytes.size(), fs::file_size(file)) << file;
  }
}

}  // namespace
