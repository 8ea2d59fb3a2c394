// Bad input and bad options: each gets one line on standard error naming the file or option and
// the reason, exit code 2 (usage, input) or 1 (nothing to measure); inputs are never written and
// no half file is left. Also --help, --version and the quiet, non-terminal output.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "ToolRunner.h"

namespace {

using namespace tooltest;

// Exit code, one line on standard error that holds every given fragment, and nothing written to
// the output folder "out" that is not a complete file.
void ExpectError(const Outcome& outcome, int code, const std::vector<std::string>& fragments) {
  EXPECT_EQ(outcome.exitCode, code) << outcome.err;
  EXPECT_EQ(CountLines(outcome.err), 1) << outcome.err;
  for (const std::string& fragment : fragments) {
    EXPECT_NE(outcome.err.find(fragment), std::string::npos)
        << "\"" << fragment << "\" not in: " << outcome.err;
  }
}

void ExpectNoPartialFile(const fs::path& dir) {
  std::error_code code;
  for (const auto& entry : fs::recursive_directory_iterator(dir, code)) {
    EXPECT_EQ(entry.path().filename().string().rfind(".partial", 0), std::string::npos)
        << entry.path();
  }
}

fs::path WriteImage(const fs::path& path, const cv::Mat& image) {
  EXPECT_TRUE(cv::imwrite(path.string(), image));
  return path;
}

cv::Mat Noise16(int rows, int cols, int seed) {
  cv::Mat image(rows, cols, CV_16U);
  cv::RNG rng(static_cast<uint64_t>(seed));
  rng.fill(image, cv::RNG::UNIFORM, 1000, 1100);
  return image;
}

TEST(ToolErrors, MissingAndUnreadableFiles) {
  const fs::path dir = Scratch("errors_files");
  ExpectError(RunTool({"mtf", "absent.tif", "--out", "out"}, dir), 2,
              {"absent.tif", "no such file"});
  EXPECT_FALSE(fs::exists(dir / "out"));
  std::ofstream(dir / "text.tif") << "not an image";
  ExpectError(
      RunTool({"clean", "text.tif", "--radius", "3", "--threshold", "10", "--out", "out"}, dir), 2,
      {"text.tif", "cannot be read as an image"});
  ExpectError(RunTool({"median", ".", "--radius", "3", "--out", "out"}, dir), 2, {".", "folder"});
  ExpectError(RunTool({"noise", "absent/*.tif", "--out", "out"}, dir), 2,
              {"absent/*.tif", "matches no file"});
  EXPECT_FALSE(fs::exists(dir / "out"));
}

TEST(ToolErrors, UnsupportedDepthAndChannelCount) {
  const fs::path dir = Scratch("errors_depth");
  WriteImage(dir / "float.tif", cv::Mat(20, 20, CV_32F, cv::Scalar(1.5f)));
  WriteImage(dir / "colour.png", cv::Mat(20, 20, CV_8UC3, cv::Scalar(1, 2, 3)));
  WriteImage(dir / "eight.png", cv::Mat(20, 20, CV_8U, cv::Scalar(7)));
  ExpectError(
      RunTool({"clean", "float.tif", "--radius", "3", "--threshold", "10", "--out", "o1"}, dir), 2,
      {"float.tif", "unsupported depth 32-bit float"});
  ExpectError(
      RunTool({"clean", "colour.png", "--radius", "3", "--threshold", "10", "--out", "o2"}, dir), 2,
      {"colour.png", "3 channels"});
  // 8-bit images only with the square windows of radius 1 and 2.
  ExpectError(RunTool({"median", "eight.png", "--radius", "3", "--out", "o3"}, dir), 2,
              {"eight.png", "8-bit unsigned"});
  EXPECT_EQ(
      RunTool({"clean", "eight.png", "--radius", "2", "--threshold", "10", "--out", "o4"}, dir)
          .exitCode,
      0);
  ExpectError(RunTool({"noise", "colour.png", "colour.png", "--out", "o5"}, dir), 2,
              {"colour.png", "3 channels"});
}

TEST(ToolErrors, FramesOfDifferentSizesAndFoldersWithoutFrames) {
  const fs::path dir = Scratch("errors_frames");
  fs::create_directories(dir / "mixed");
  WriteImage(dir / "mixed" / "a.tif", Noise16(10, 12, 1));
  WriteImage(dir / "mixed" / "b.tif", Noise16(10, 12, 2));
  WriteImage(dir / "mixed" / "c.tif", Noise16(11, 12, 3));
  ExpectError(RunTool({"noise", "mixed", "--out", "out"}, dir), 2,
              {"c.tif", "All images needs to have the save image dimension"});
  EXPECT_FALSE(fs::exists(dir / "out"));
  fs::create_directories(dir / "empty");
  ExpectError(RunTool({"noise", "empty", "--out", "out"}, dir), 2, {"empty", "holds no frames"});
  ExpectError(RunTool({"noise", "mixed/a.tif", "--out", "out"}, dir), 2, {"a.tif", "two frames"});
  ExpectError(RunTool({"dark", "empty", "--out", "out"}, dir), 2, {"empty", "Black_150s.tif"});
  fs::copy_file(dir / "mixed" / "a.tif", dir / "empty" / "Black_150s.tif");
  fs::copy_file(dir / "mixed" / "b.tif", dir / "empty" / "Black_1s.tif");
  ExpectError(RunTool({"light", "empty", "--out", "out"}, dir), 2, {"empty", "RawSignal_*.tif"});
  ExpectError(RunTool({"dark", "nowhere", "--out", "out"}, dir), 2, {"nowhere", "no such folder"});
  EXPECT_FALSE(fs::exists(dir / "out"));
}

TEST(ToolErrors, OutputFolderExistsOrCannotBeWritten) {
  const fs::path dir = Scratch("errors_output");
  WriteImage(dir / "in.tif", Noise16(40, 40, 4));
  fs::create_directories(dir / "taken");
  ExpectError(RunTool({"median", "in.tif", "--radius", "2", "--out", "taken"}, dir), 2,
              {"taken", "already exists", "--force"});
  EXPECT_EQ(
      RunTool({"median", "in.tif", "--radius", "2", "--out", "taken", "--force"}, dir).exitCode, 0);
  EXPECT_TRUE(fs::exists(dir / "taken" / "in_median.tif"));
  // The default folder is never overwritten either.
  EXPECT_EQ(RunTool({"median", "in.tif", "--radius", "2"}, dir).exitCode, 0);
  ExpectError(RunTool({"median", "in.tif", "--radius", "2"}, dir), 2,
              {"in_median", "already exists"});
  // A folder below a file cannot be made; a read-only folder cannot be written.
  ExpectError(RunTool({"median", "in.tif", "--radius", "2", "--out", "in.tif/sub"}, dir), 2,
              {"in.tif/sub", "cannot create output folder"});
  fs::create_directories(dir / "locked");
  fs::permissions(dir / "locked", fs::perms::owner_read | fs::perms::owner_exec);
  const bool root = access((dir / "locked").c_str(), W_OK) == 0;
  if (!root) {
    ExpectError(RunTool({"median", "in.tif", "--radius", "2", "--out", "locked", "--force"}, dir),
                2, {"locked", "not writable"});
  } else {
    // Root writes everywhere; a path through /proc cannot be created by anybody.
    ExpectError(RunTool({"median", "in.tif", "--radius", "2", "--out", "/proc/ombrix/out"}, dir), 2,
                {"/proc/ombrix/out", "cannot create output folder"});
  }
  fs::permissions(dir / "locked", fs::perms::owner_all);
  ExpectNoPartialFile(dir);
}

TEST(ToolErrors, BadOptionValues) {
  const fs::path dir = Scratch("errors_options");
  WriteImage(dir / "in.tif", Noise16(40, 50, 5));
  ExpectError(RunTool({"clean", "in.tif", "--radius", "0", "--threshold", "10", "--out", "o"}, dir),
              2, {"--radius", "at least 1"});
  ExpectError(RunTool({"median", "in.tif", "--radius", "-3", "--out", "o"}, dir), 2, {"--radius"});
  ExpectError(RunTool({"clean", "in.tif", "--radius", "3", "--threshold", "-1", "--out", "o"}, dir),
              2, {"--threshold", "negative"});
  ExpectError(RunTool({"clean", "in.tif", "--radius", "x", "--threshold", "1", "--out", "o"}, dir),
              2, {"--radius"});
  ExpectError(RunTool({"clean", "in.tif", "--threshold", "1", "--out", "o"}, dir), 2, {"--radius"});
  ExpectError(RunTool({"mtf", "in.tif", "--roi", "30,30,20,20", "--out", "o"}, dir), 2,
              {"--roi", "outside", "in.tif", "50 x 40"});
  ExpectError(RunTool({"mtf", "in.tif", "--roi", "1,2,3", "--out", "o"}, dir), 2,
              {"--roi", "x,y,w,h"});
  ExpectError(RunTool({"mtf", "in.tif", "--gamma", "0", "--out", "o"}, dir), 2, {"--gamma"});
  ExpectError(RunTool({"mtf", "in.tif", "--pixel-pitch", "-2", "--out", "o"}, dir), 2,
              {"--pixel-pitch"});
  ExpectError(RunTool({"noise", "in.tif", "in.tif", "--region", "0,0,60,10", "--out", "o"}, dir), 2,
              {"--region", "outside"});
  ExpectError(RunTool({"median", "in.tif", "--radius", "2", "--bogus"}, dir), 2, {"--bogus"});
  ExpectError(RunTool({"frobnicate"}, dir), 2, {"frobnicate"});
  ExpectError(RunTool({}, dir), 2, {"subcommand"});
  EXPECT_FALSE(fs::exists(dir / "o"));
}

TEST(ToolErrors, NothingToMeasureExitsWithOne) {
  const fs::path dir = Scratch("errors_measurement");
  WriteImage(dir / "flat.tif", cv::Mat(64, 64, CV_16U, cv::Scalar(1000)));
  ExpectError(RunTool({"mtf", "flat.tif", "--out", "o1"}, dir), 1, {"flat.tif", "no target found"});
  ExpectError(RunTool({"mtf", "flat.tif", "--edge", "--out", "o2"}, dir), 1,
              {"flat.tif", "edge not located"});
  // The results of the images that could be measured are kept.
  const Outcome mixed =
      RunTool({"mtf", "--edge", "flat.tif", DataFile("MTF_Edge1.tif"), "--out", "o3"}, dir);
  ExpectError(mixed, 1, {"flat.tif", "edge not located"});
  const nlohmann::json results = ReadJson(dir / "o3" / "results.json");
  EXPECT_EQ(Figure(results, "edge", "MTF50", "cycles/pixel").at("input"),
            DataFile("MTF_Edge1.tif"));
}

TEST(ToolErrors, NoCrashOnStrangeImages) {
  const fs::path dir = Scratch("errors_strange");
  WriteImage(dir / "one.tif", cv::Mat(1, 1, CV_16U, cv::Scalar(5)));
  WriteImage(dir / "row.tif", Noise16(1, 300, 6));
  WriteImage(dir / "colour.png", cv::Mat(30, 30, CV_8UC4, cv::Scalar(1, 2, 3, 4)));
  const std::vector<std::vector<std::string>> commands = {
      {"mtf", "one.tif"},
      {"mtf", "one.tif", "--edge"},
      {"mtf", "row.tif", "--edge"},
      {"mtf", "colour.png"},
      {"mtf", "colour.png", "--edge"},
      {"clean", "one.tif", "--radius", "30", "--threshold", "0"},
      {"median", "row.tif", "--radius", "40"},
      {"noise", "one.tif", "one.tif"}};
  int index = 0;
  for (std::vector<std::string> command : commands) {
    command.push_back("--out");
    command.push_back("o" + std::to_string(index++));
    const Outcome outcome = RunTool(command, dir);
    EXPECT_TRUE(outcome.exitCode == 0 || outcome.exitCode == 1 || outcome.exitCode == 2)
        << command[0] << " " << command[1] << ": " << outcome.exitCode << " " << outcome.err;
    if (outcome.exitCode != 0) {
      EXPECT_EQ(CountLines(outcome.err), 1) << outcome.err;
    }
  }
  ExpectNoPartialFile(dir);
}

TEST(ToolErrors, InputsAreNeverWritten) {
  const fs::path dir = Scratch("errors_inputs");
  WriteImage(dir / "in.tif", Noise16(30, 30, 7));
  // The mask carries the name the cleaned image would take in the input's own folder.
  cv::Mat mask(30, 30, CV_8U, cv::Scalar(255));
  WriteImage(dir / "in_clean.tif", mask);
  const std::string maskBytes = ReadText((dir / "in_clean.tif").string());
  const std::string imageBytes = ReadText((dir / "in.tif").string());
  ExpectError(RunTool({"clean", "in.tif", "--radius", "2", "--threshold", "10", "--mask",
                       "in_clean.tif", "--out", ".", "--force"},
                      dir),
              2, {"in_clean.tif", "input"});
  EXPECT_EQ(ReadText((dir / "in_clean.tif").string()), maskBytes);
  EXPECT_EQ(ReadText((dir / "in.tif").string()), imageBytes);
  ExpectNoPartialFile(dir);
}

TEST(ToolHelp, EverySubcommandListsItsOptionsWithDefaultsAndUnits) {
  const fs::path dir = Scratch("help");
  const Outcome top = RunTool({"--help"}, dir);
  EXPECT_EQ(top.exitCode, 0);
  for (const char* command : {"mtf", "clean", "median", "noise", "dark", "light", "spots"}) {
    EXPECT_NE(top.out.find(command), std::string::npos) << command;
    const Outcome help = RunTool({command, "--help"}, dir);
    EXPECT_EQ(help.exitCode, 0) << command;
    EXPECT_NE(help.out.find("--out"), std::string::npos) << command;
    EXPECT_NE(help.out.find("--json"), std::string::npos) << command;
  }
  const Outcome mtf = RunTool({"mtf", "--help"}, dir);
  EXPECT_NE(mtf.out.find("--gamma FLOAT=1"), std::string::npos) << mtf.out;
  EXPECT_NE(mtf.out.find("microns"), std::string::npos);
  EXPECT_NE(mtf.out.find("cycles/pixel"), std::string::npos);
  const Outcome clean = RunTool({"clean", "--help"}, dir);
  EXPECT_NE(clean.out.find("pixels"), std::string::npos);
  EXPECT_NE(clean.out.find("DN"), std::string::npos);
  const Outcome version = RunTool({"--version"}, dir);
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.out, std::string("ombrix ") + OMBRIX_VERSION + "\n");
}

TEST(ToolOutput, QuietAndNotATerminalPrintNothingButTheResults) {
  const fs::path dir = Scratch("quiet");
  const Outcome loud =
      RunTool({"median", DataFile("MedianSrc.tif"), "--radius", "3", "--out", "a"}, dir);
  EXPECT_EQ(loud.exitCode, 0);
  // Standard error is a file here: no progress bar.
  EXPECT_EQ(loud.err, "");
  EXPECT_NE(loud.out.find("disc median of radius 3"), std::string::npos);
  const Outcome quiet =
      RunTool({"median", DataFile("MedianSrc.tif"), "--radius", "3", "--out", "b", "--quiet"}, dir);
  EXPECT_EQ(quiet.exitCode, 0);
  EXPECT_EQ(quiet.out, "");
  EXPECT_EQ(quiet.err, "");
  EXPECT_TRUE(fs::exists(dir / "b" / "results.csv"));
  EXPECT_EQ(ReadText((dir / "b" / "results.csv").string())
                .rfind("input,subject,figure,value,unit,lower,upper\n", 0),
            0u);
}

}  // namespace
