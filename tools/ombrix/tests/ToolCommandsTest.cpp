// Every ombrix subcommand on the data sets: its figures and files equal those of the core's own
// API (and the plug-in's scenario sequences) on the same images, and the physical truth recorded
// with the data (the slanted edges' true MTF, the clean frame under the cosmic-ray hits, the
// temporal-noise model, the scenario folders' expected results).
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "MtfEdgeModels.h"
#include "PluginScenarios.h"
#include "Random.h"
#include "SlantedEdge.h"
#include "TemporalNoiseModel.h"
#include "ToolRunner.h"
#include "filters/FilterCosmicRay.h"
#include "mtf/MtfDrawing.h"
#include "mtf/MtfMeasurement.h"
#include "mtf/MtfUncertainty.h"
#include "stack/TemporalNoise.h"
#include "stack/TemporalNoiseStream.h"

namespace {

using namespace tooltest;
using nlohmann::json;

double Value(const json& figure) { return figure.at("value").get<double>(); }

bool Equal(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

bool SameBits(float a, float b) { return std::memcmp(&a, &b, sizeof(float)) == 0; }

cv::Mat ReadUnchanged(const fs::path& path) {
  return cv::imread(path.string(), cv::IMREAD_UNCHANGED);
}

// ---- mtf ----------------------------------------------------------------------------------------

struct EdgeCase {
  const char* file;
  double sigma;
};

TEST(ToolMtf, SingleEdgesEqualTheCoreAndTheTruth) {
  const EdgeCase cases[] = {{"MTF_Edge1.tif", datagen::kMtfEdge1Sigma},
                            {"MTF_Edge2.tif", datagen::kMtfEdge2Sigma}};
  for (const EdgeCase& c : cases) {
    SCOPED_TRACE(c.file);
    const fs::path dir = Scratch(std::string("mtf_edge_") + c.file);
    const Outcome run =
        RunTool({"mtf", DataFile(c.file), "--edge", "--pixel-pitch", "4", "--out", "out"}, dir);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    const json results = ReadJson(dir / "out" / "results.json");

    const cv::Mat image = cv::imread(DataFile(c.file), cv::IMREAD_UNCHANGED);
    CMtfMeasurement measurement;
    MtfResult result;
    float slope = 0.0f;
    ASSERT_TRUE(measurement.MeasureEdge(image, result, &slope));
    const CMtfUncertainty uncertainty;
    MtfResult again;
    MtfEdgeUncertainty intervals;
    ASSERT_TRUE(uncertainty.MeasureEdge(measurement, image, again, intervals));

    const json mtf50 = Figure(results, "edge", "MTF50", "cycles/pixel");
    const json cut = Figure(results, "edge", "cut frequency", "cycles/pixel");
    EXPECT_EQ(Value(mtf50), MtfCrossing(result, 0.5));
    EXPECT_EQ(Value(cut), static_cast<double>(result.cutFrequency));
    EXPECT_EQ(Value(Figure(results, "edge", "efficiency", "%")),
              static_cast<double>(result.efficiency));
    EXPECT_EQ(Value(Figure(results, "edge", "angle", "degree")),
              CMtfMeasurement::TiltDegrees(slope));
    ASSERT_TRUE(intervals.mtf50.Available());
    EXPECT_EQ(mtf50.at("interval95").at("lower").get<double>(), intervals.mtf50.lower);
    EXPECT_EQ(mtf50.at("interval95").at("upper").get<double>(), intervals.mtf50.upper);
    EXPECT_EQ(cut.at("interval95").at("lower").get<double>(), intervals.cutFrequency.lower);
    EXPECT_EQ(cut.at("interval95").at("upper").get<double>(), intervals.cutFrequency.upper);

    // 4 micron pixels: 250 pixels per mm.
    EXPECT_DOUBLE_EQ(Value(Figure(results, "edge", "MTF50", "line pairs/mm")),
                     MtfCrossing(result, 0.5) * 250.0);
    EXPECT_DOUBLE_EQ(Value(Figure(results, "edge", "cut frequency", "line pairs/mm")),
                     result.cutFrequency * 250.0);

    // The generator's model: a 5 degree edge blurred by a Gaussian of known sigma.
    const double trueMtf50 = datagen::SlantedEdgeTrueCrossing(c.sigma, 0.5);
    const double trueCut = datagen::SlantedEdgeTrueCrossing(c.sigma, 0.1);
    EXPECT_NEAR(Value(mtf50), trueMtf50, 0.02 * trueMtf50);
    EXPECT_NEAR(Value(cut), trueCut, 0.02 * trueCut);
    EXPECT_NEAR(Value(Figure(results, "edge", "angle", "degree")), 5.0, 0.05);
    EXPECT_NE(run.out.find("1 edge"), std::string::npos) << run.out;
  }
}

TEST(ToolMtf, ChartEdgesEqualTheTargetMeasurementAndTheChartIsTheCoreDrawing) {
  const fs::path dir = Scratch("mtf_chart");
  const Outcome run = RunTool({"mtf", DataFile("FTM.tif"), "--out", "out"}, dir);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const json results = ReadJson(dir / "out" / "results.json");

  const cv::Mat image = cv::imread(DataFile("FTM.tif"), cv::IMREAD_UNCHANGED);
  CMtfMeasurement measurement;
  const MtfTargetMap targets = measurement.MeasureTargets(image);
  const MtfTargetUncertainty intervals =
      CMtfUncertainty().MeasureTargets(measurement, image, targets);
  const char* sides[] = {"left", "top", "right", "bottom"};
  std::size_t edges = 0;
  for (const auto& [number, target] : targets) {
    for (std::size_t e = 0; e < target.edges.size(); ++e) {
      const MtfEdge& edge = target.edges[e];
      const std::string subject =
          "target " + std::to_string(number) + " " + sides[static_cast<int>(edge.side)];
      SCOPED_TRACE(subject);
      const json mtf50 = Figure(results, subject, "MTF50", "cycles/pixel");
      EXPECT_EQ(Value(mtf50), MtfCrossing(edge.result, 0.5));
      EXPECT_EQ(Value(Figure(results, subject, "cut frequency", "cycles/pixel")),
                static_cast<double>(edge.result.cutFrequency));
      EXPECT_EQ(Value(Figure(results, subject, "efficiency")),
                static_cast<double>(edge.result.efficiency));
      EXPECT_EQ(Value(Figure(results, subject, "angle")), CMtfMeasurement::TiltDegrees(edge.slope));
      EXPECT_EQ(mtf50.at("interval95").at("lower").get<double>(),
                intervals.at(number)[e].mtf50.lower);
      ++edges;
    }
  }
  // The chart holds five framed targets, four measured edges each.
  EXPECT_EQ(edges, 20u);
  std::size_t listed = 0;
  for (const json& figure : results.at("figures")) listed += figure.at("name") == "MTF50";
  EXPECT_EQ(listed, edges);

  cv::Mat drawn;
  DrawMtfResults(image, targets, drawn);
  EXPECT_TRUE(Equal(ReadUnchanged(dir / "out" / "FTM_chart.png"), drawn));
}

TEST(ToolMtf, SeveralImagesKeepTheirOrderAndTheirInputsAreHashed) {
  const fs::path dir = Scratch("mtf_order");
  const Outcome run = RunTool({"mtf", "--edge", DataFile("MTF_Edge2.tif"),
                               DataFile("MTF_Edge1.tif"), "--json", "--out", "o"},
                              dir);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  // --json prints the document itself on standard output.
  const json printed = json::parse(run.out);
  const json results = ReadJson(dir / "o" / "results.json");
  EXPECT_EQ(printed, results);
  ASSERT_EQ(results.at("inputs").size(), 2u);
  EXPECT_EQ(results.at("inputs")[0].at("path"), DataFile("MTF_Edge2.tif"));
  EXPECT_EQ(results.at("inputs")[1].at("path"), DataFile("MTF_Edge1.tif"));
  EXPECT_EQ(results.at("figures")[0].at("input"), DataFile("MTF_Edge2.tif"));
  EXPECT_EQ(results.at("figures").back().at("input"), DataFile("MTF_Edge1.tif"));
  const std::string digest = results.at("inputs")[0].at("sha256");
  EXPECT_EQ(digest.size(), 64u);
  EXPECT_NE(digest, results.at("inputs")[1].at("sha256").get<std::string>());
  EXPECT_EQ(results.at("tool").at("version"), OMBRIX_VERSION);
  EXPECT_EQ(results.at("command"), "mtf");
}

// ---- clean and median ---------------------------------------------------------------------------

TEST(ToolClean, CosmicRayImageEqualsTheFilterAndComesBackToTheCleanFrame) {
  const fs::path dir = Scratch("clean");
  const Outcome run = RunTool(
      {"clean", DataFile("CosmicRay.tif"), "--radius", "10", "--threshold", "100", "--out", "out"},
      dir);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const cv::Mat source = cv::imread(DataFile("CosmicRay.tif"), cv::IMREAD_UNCHANGED);
  cv::Mat expected, replaced;
  CFilterCosmicRay(10, 100).Process(source, expected, cv::Mat(), replaced);
  const cv::Mat cleaned = ReadUnchanged(dir / "out" / "CosmicRay_clean.tif");
  EXPECT_TRUE(Equal(cleaned, expected));
  EXPECT_EQ(cleaned.type(), CV_16UC1);
  EXPECT_TRUE(Equal(ReadUnchanged(dir / "out" / "CosmicRay_replaced.png"), replaced));

  const int count = cv::countNonZero(replaced);
  ASSERT_GT(count, 0);
  const json results = ReadJson(dir / "out" / "results.json");
  EXPECT_EQ(Value(Figure(results, "whole image", "replaced pixels", "pixel")), count);
  EXPECT_NE(run.out.find(std::to_string(count) + " pixels replaced"), std::string::npos);

  // The list: one row per replaced pixel, the source value and the median it took.
  std::istringstream list(ReadText((dir / "out" / "CosmicRay_replaced.csv").string()));
  std::string line;
  std::getline(list, line);
  EXPECT_EQ(line, "x,y,value,median");
  int rows = 0;
  while (std::getline(list, line)) {
    int x = 0, y = 0, value = 0, median = 0;
    char c1 = 0, c2 = 0, c3 = 0;
    std::istringstream fields(line);
    fields >> x >> c1 >> y >> c2 >> value >> c3 >> median;
    ASSERT_TRUE(fields) << line;
    EXPECT_EQ(replaced.at<uchar>(y, x), 255);
    EXPECT_EQ(source.at<unsigned short>(y, x), value);
    EXPECT_EQ(expected.at<unsigned short>(y, x), median);
    EXPECT_GT(value - median, 100);
    ++rows;
  }
  EXPECT_EQ(rows, count);

  // The frame before the hits: the hits are gone (the verification suite's criterion inside a
  // 10-pixel border), which they were not before the filter.
  const cv::Mat clean = cv::imread(DataFile("CosmicRay10-100.tif"), cv::IMREAD_UNCHANGED);
  const cv::Rect inner(10, 10, clean.cols - 20, clean.rows - 20);
  cv::Mat before, after;
  cv::absdiff(source(inner), clean(inner), before);
  cv::absdiff(cleaned(inner), clean(inner), after);
  double beforeMax = 0.0, afterMax = 0.0;
  cv::minMaxIdx(before, nullptr, &beforeMax);
  cv::minMaxIdx(after, nullptr, &afterMax);
  EXPECT_GT(beforeMax, 1000.0);
  EXPECT_LT(afterMax, 105.0);
}

TEST(ToolClean, MaskLimitsTheReplacementAsTheFilterDoes) {
  const fs::path dir = Scratch("clean_mask");
  const cv::Mat source = cv::imread(DataFile("CosmicRay.tif"), cv::IMREAD_UNCHANGED);
  cv::Mat mask = cv::Mat::zeros(source.size(), CV_8U);
  mask(cv::Rect(source.cols / 2, 0, source.cols - source.cols / 2, source.rows)).setTo(255);
  ASSERT_TRUE(cv::imwrite((dir / "mask.png").string(), mask));
  const Outcome run = RunTool({"clean", DataFile("CosmicRay.tif"), "--radius", "5", "--threshold",
                               "80", "--mask", "mask.png", "--out", "out"},
                              dir);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  cv::Mat expected, replaced;
  CFilterCosmicRay(5, 80).Process(source, expected, mask, replaced);
  EXPECT_TRUE(Equal(ReadUnchanged(dir / "out" / "CosmicRay_clean.tif"), expected));
  const cv::Mat map = ReadUnchanged(dir / "out" / "CosmicRay_replaced.png");
  EXPECT_EQ(cv::countNonZero(map(cv::Rect(0, 0, source.cols / 2, source.rows))), 0);
  EXPECT_GT(cv::countNonZero(map), 0);
}

TEST(ToolMedian, EqualsTheDiscMedian) {
  const fs::path dir = Scratch("median");
  const Outcome run =
      RunTool({"median", DataFile("MedianSrc.tif"), "--radius", "10", "--out", "out"}, dir);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const cv::Mat source = cv::imread(DataFile("MedianSrc.tif"), cv::IMREAD_UNCHANGED);
  cv::Mat expected;
  CFilterCosmicRay::MedianBlur(source, expected, 10);
  EXPECT_TRUE(Equal(ReadUnchanged(dir / "out" / "MedianSrc_median.tif"), expected));
  EXPECT_FALSE(Equal(source, expected));
}

// ---- noise --------------------------------------------------------------------------------------

cv::Mat StackCompute(const std::vector<cv::Mat>& frames) {
  CTemporalNoise noise;
  for (const cv::Mat& frame : frames) noise.AddImage(frame);
  return noise.Compute(
      std::bind(&CTemporalNoise::StandardDeviation, &noise, std::placeholders::_1));
}

// Covered pixels (the stack's nine runs) bit for bit equal to the stack statistic; the tail pixels
// it leaves at 0 equal the statistic of their own values.
void ExpectStreamEqualsStack(const cv::Mat& map, const std::vector<cv::Mat>& frames) {
  ASSERT_EQ(map.type(), CV_32FC1);
  const cv::Mat stack = StackCompute(frames);
  ASSERT_EQ(map.size(), stack.size());
  const int total = map.rows * map.cols;
  const int covered = total / 9 * 9;
  int differing = 0;
  CTemporalNoise statistic;
  for (int i = 0; i < total; ++i) {
    const int y = i / map.cols, x = i % map.cols;
    if (i < covered) {
      differing += !SameBits(map.at<float>(y, x), stack.at<float>(y, x));
    } else {
      std::vector<unsigned short> values;
      for (const cv::Mat& frame : frames) values.push_back(frame.at<unsigned short>(y, x));
      EXPECT_TRUE(SameBits(map.at<float>(y, x), statistic.StandardDeviation(values))) << i;
      EXPECT_GT(map.at<float>(y, x), 0.0f);
      EXPECT_EQ(stack.at<float>(y, x), 0.0f);
    }
  }
  EXPECT_EQ(differing, 0);
}

std::vector<cv::Mat> ReadFrames(const std::string& pattern) {
  std::vector<cv::String> files;
  cv::glob(pattern, files, false);
  std::vector<cv::Mat> frames;
  for (const cv::String& file : files) frames.push_back(cv::imread(file, cv::IMREAD_UNCHANGED));
  return frames;
}

TEST(ToolNoise, TemporalNoiseSetEqualsTheStackAndTheModel) {
  namespace model = datagen::temporal_noise;
  const fs::path dir = Scratch("noise_set");
  const std::string region =
      std::to_string(model::kRegionX) + "," + std::to_string(model::kRegionY) + "," +
      std::to_string(model::kRegionSize) + "," + std::to_string(model::kRegionSize);
  const Outcome run = RunTool({"noise", DataFile("TemporalNoise"), "--region", region}, dir);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  // Default folder: named after the input folder and the command.
  const fs::path out = dir / "TemporalNoise_noise";
  const cv::Mat map = ReadUnchanged(out / "noise.tif");
  const std::vector<cv::Mat> frames = ReadFrames(DataFile("TemporalNoise/RawNoise_*.tif"));
  ASSERT_EQ(frames.size(), static_cast<std::size_t>(model::kFrames));
  ExpectStreamEqualsStack(map, frames);

  const json results = ReadJson(out / "results.json");
  EXPECT_EQ(results.at("inputs").size(), frames.size());
  EXPECT_EQ(Value(Figure(results, "series", "frames")), model::kFrames);
  const cv::Rect area(model::kRegionX, model::kRegionY, model::kRegionSize, model::kRegionSize);
  const double mean = Value(Figure(results, "region " + region, "mean", "DN"));
  EXPECT_NEAR(mean, cv::mean(map(area))[0], 1e-6);
  EXPECT_NEAR(Value(Figure(results, "whole frame", "mean", "DN")), cv::mean(map)[0], 1e-6);
  // The model: E[s] = c4(K) x the effective noise of each pixel, averaged over the region; the
  // sampling error of the region mean is about 0.07 DN.
  double expected = 0.0;
  for (int y = area.y; y < area.y + area.height; ++y) {
    for (int x = area.x; x < area.x + area.width; ++x) expected += model::EffectiveSigma(x, y);
  }
  expected *= model::C4(model::kFrames) / static_cast<double>(area.area());
  EXPECT_NEAR(mean, expected, 0.3);

  // Median and 99th percentile: linear interpolation between the sorted values.
  const cv::Mat regionValues = map(area).clone();
  std::vector<float> values(regionValues.begin<float>(), regionValues.end<float>());
  std::sort(values.begin(), values.end());
  const double median = 0.5 * (double(values[19999]) + double(values[20000]));
  EXPECT_NEAR(Value(Figure(results, "region " + region, "median", "DN")), median, 1e-9);
  const double position = 0.99 * 39999.0;
  const std::size_t below = static_cast<std::size_t>(position);
  const double p99 =
      values[below] + (position - below) * (double(values[below + 1]) - values[below]);
  EXPECT_NEAR(Value(Figure(results, "region " + region, "99th percentile", "DN")), p99, 1e-9);
}

// Frames of sizes whose pixel count is not a multiple of 9, written as 16-bit TIFFs.
std::vector<cv::Mat> WriteOddFrames(const fs::path& folder, int rows, int cols, int count,
                                    std::uint64_t seed) {
  fs::create_directories(folder);
  datagen::Random random(seed);
  std::vector<cv::Mat> frames;
  for (int k = 0; k < count; ++k) {
    cv::Mat frame(rows, cols, CV_16U);
    for (int y = 0; y < rows; ++y) {
      for (int x = 0; x < cols; ++x) frame.at<unsigned short>(y, x) = random.Int(900, 1300);
    }
    char name[32];
    std::snprintf(name, sizeof name, "Frame_%03d.tif", k);
    EXPECT_TRUE(cv::imwrite((folder / name).string(), frame));
    frames.push_back(frame);
  }
  return frames;
}

TEST(ToolNoise, OddSizesThroughAGlobEqualTheStackAndFillTheTail) {
  const int sizes[][3] = {{23, 37, 5}, {1, 17, 3}, {31, 1, 11}, {50, 51, 2}};
  for (const auto& size : sizes) {
    SCOPED_TRACE(std::to_string(size[0]) + " x " + std::to_string(size[1]));
    const fs::path dir =
        Scratch("noise_odd_" + std::to_string(size[0]) + "x" + std::to_string(size[1]));
    const std::vector<cv::Mat> frames =
        WriteOddFrames(dir / "frames", size[0], size[1], size[2], 1000 + size[0]);
    const Outcome run = RunTool({"noise", "frames/*.tif", "--out", "out", "--quiet"}, dir);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "");
    ExpectStreamEqualsStack(ReadUnchanged(dir / "out" / "noise.tif"), frames);
  }
}

TEST(ToolNoise, ExactStackIsTheStackStatisticTailIncluded) {
  const fs::path dir = Scratch("noise_exact");
  const std::vector<cv::Mat> frames = WriteOddFrames(dir / "frames", 19, 29, 6, 77);
  const Outcome run = RunTool({"noise", "frames", "--exact-stack", "--out", "out"}, dir);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const cv::Mat map = ReadUnchanged(dir / "out" / "noise.tif");
  const cv::Mat stack = StackCompute(frames);
  ASSERT_EQ(map.type(), CV_32FC1);
  EXPECT_EQ(cv::norm(map, stack, cv::NORM_INF), 0.0);
  // 551 pixels: the last 2 stay 0.
  EXPECT_EQ(map.at<float>(18, 28), 0.0f);
  EXPECT_EQ(map.at<float>(18, 27), 0.0f);
  EXPECT_GT(map.at<float>(18, 26), 0.0f);
  EXPECT_EQ(ReadJson(dir / "out" / "results.json").at("settings").at("method"), "stack");
}

// ---- plug-in commands ---------------------------------------------------------------------------

// A dark-chamber folder of the test data and the defects it holds.
struct DarkChamberCase {
  const char* folder;
  int defects;
};

class ToolPluginDark : public testing::TestWithParam<DarkChamberCase> {};

TEST_P(ToolPluginDark, ChamberEqualsTheScenarioAndItsTruth) {
  const DarkChamberCase& c = GetParam();
  const fs::path dir = Scratch(std::string("dark_") + c.folder);
  const Outcome run = RunTool({"dark", DataFile(c.folder), "--out", "out"}, dir);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const json results = ReadJson(dir / "out" / "results.json");
  const double defects = Value(Figure(results, "dark chamber", "defects", "count"));
  EXPECT_EQ(defects, scenarios::DarkChamberBody(OMBRIX_TEST_PROCESSING_MODULE, DataFile(c.folder)));
  EXPECT_EQ(defects, c.defects);

  CFactoryCollection collection;
  std::shared_ptr<IOmbrixProcessing> plugin =
      scenarios::MakeCheckedProcessingPlugin(collection, OMBRIX_TEST_PROCESSING_MODULE);
  ASSERT_TRUE(plugin);
  scenarios::RunDarkChamberSequence(*plugin, DataFile(c.folder));
  const cv::Mat map = plugin->GetDefectMap();
  plugin.reset();
  EXPECT_TRUE(Equal(ReadUnchanged(dir / "out" / "defect_map.png"), map));
  EXPECT_EQ(Value(Figure(results, "dark chamber", "defect pixels")), cv::countNonZero(map));
  // Darks and raw frames are the inputs.
  EXPECT_EQ(results.at("inputs").size(), 2 + scenarios::RawFrameFiles(DataFile(c.folder)).size());
}

INSTANTIATE_TEST_SUITE_P(Folders, ToolPluginDark,
                         testing::Values(DarkChamberCase{"DarkChamber", 0},
                                         DarkChamberCase{"DarkChamberFail", 1}),
                         [](const testing::TestParamInfo<DarkChamberCase>& info) {
                           return std::string(info.param.folder);
                         });

TEST(ToolPlugin, LightSourceFactorEqualsTheScenarioAndTheTruth) {
  const fs::path dir = Scratch("light");
  const Outcome run = RunTool({"light", DataFile("QT7M21013H")}, dir);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const json results = ReadJson(dir / "QT7M21013H_light" / "results.json");
  const double factor = Value(Figure(results, "light source", "factor"));
  EXPECT_EQ(factor,
            scenarios::LightSourceBody(OMBRIX_TEST_PROCESSING_MODULE, DataFile("QT7M21013H")));
  EXPECT_NEAR(factor, 0.9908, 1e-4);
  EXPECT_NE(run.out.find("light-source factor 0.9908"), std::string::npos) << run.out;
}

TEST(ToolPlugin, SpotsEqualTheDetectionScenarioAndTheDrawnSpots) {
  const struct {
    bool control;
    std::size_t objects;
  } cases[] = {{false, 117}, {true, 28}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.control ? "control" : "nominal");
    const fs::path dir = Scratch(c.control ? "spots_control" : "spots_nominal");
    std::vector<std::string> arguments = {"spots", DataFile("ValidationAlgo1/PTC.tif"), "--out",
                                          "out"};
    if (c.control) arguments.push_back("--control");
    const Outcome run = RunTool(arguments, dir);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json results = ReadJson(dir / "out" / "results.json");

    CFactoryCollection collection;
    std::shared_ptr<IOmbrixProcessing> plugin =
        scenarios::MakeCheckedProcessingPlugin(collection, OMBRIX_TEST_PROCESSING_MODULE);
    ASSERT_TRUE(plugin);
    const scenarios::DetectionOutput expected = scenarios::RunDetectionSequence(
        *plugin, DataFile("ValidationAlgo1"), "PTC.tif", ValidationAlgoParameters(!c.control));
    ASSERT_EQ(expected.objects.size(), c.objects);
    EXPECT_EQ(Value(Figure(results, "frame", "objects", "count")), c.objects);
    for (std::size_t i = 0; i < expected.objects.size(); ++i) {
      const std::string subject = "object " + std::to_string(i + 1);
      EXPECT_EQ(Value(Figure(results, subject, "centroid x")), expected.objects[i].centroidX);
      EXPECT_EQ(Value(Figure(results, subject, "centroid y")), expected.objects[i].centroidY);
      EXPECT_EQ(Value(Figure(results, subject, "area")), expected.objects[i].area);
      EXPECT_EQ(Value(Figure(results, subject, "peak")), expected.objects[i].peak);
      EXPECT_EQ(Value(Figure(results, subject, "circularity")), expected.objects[i].circularity);
    }
    EXPECT_EQ(CountLines(ReadText((dir / "out" / "objects.csv").string())),
              static_cast<int>(c.objects) + 1);
    const cv::Mat overlay = ReadUnchanged(dir / "out" / "spots_overlay.png");
    EXPECT_EQ(overlay.type(), CV_8UC3);
    EXPECT_EQ(overlay.size(), expected.overlayImage.size());
  }
}

}  // namespace

namespace {

using namespace tooltest;

TEST(ToolClean, SeveralFilesInParallelEqualTheFilterAndSameNamesStayApart) {
  const fs::path dir = Scratch("clean_several");
  fs::create_directories(dir / "a");
  fs::create_directories(dir / "b");
  const cv::Mat source = cv::imread(DataFile("CosmicRay.tif"), cv::IMREAD_UNCHANGED);
  const cv::Mat flipped = source.t();
  ASSERT_TRUE(cv::imwrite((dir / "a" / "frame.tif").string(), source));
  ASSERT_TRUE(cv::imwrite((dir / "b" / "frame.tif").string(), flipped));
  ASSERT_TRUE(cv::imwrite((dir / "other.tif").string(), source(cv::Rect(0, 0, 100, 80)).clone()));
  const Outcome run = RunTool({"clean", "a/frame.tif", "b/frame.tif", "other.tif", "--radius", "6",
                               "--threshold", "90", "--out", "out"},
                              dir);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const CFilterCosmicRay filter(6, 90);
  const std::pair<const char*, cv::Mat> expected[] = {
      {"frame_clean.tif", source},
      {"frame_2_clean.tif", flipped},
      {"other_clean.tif", source(cv::Rect(0, 0, 100, 80)).clone()}};
  for (const auto& [name, input] : expected) {
    SCOPED_TRACE(name);
    cv::Mat cleaned;
    filter.Process(input, cleaned, cv::Mat());
    const cv::Mat written = cv::imread((dir / "out" / name).string(), cv::IMREAD_UNCHANGED);
    EXPECT_TRUE(written.size() == cleaned.size() &&
                cv::norm(written, cleaned, cv::NORM_INF) == 0.0);
  }
  // The summary lists the files in the order given.
  EXPECT_LT(run.out.find("a/frame.tif"), run.out.find("b/frame.tif"));
  EXPECT_LT(run.out.find("b/frame.tif"), run.out.find("other.tif"));
}

TEST(ToolOutput, ProgressBarOnlyOnATerminalAndNotWithQuiet) {
  const fs::path dir = Scratch("progress");
  const std::string images =
      Quote(DataFile("MTF_Edge1.tif")) + " " + Quote(DataFile("MTF_Edge2.tif"));
  // script(1) runs the tool on a pseudo-terminal and copies what the terminal showed to stdout.
  const std::string command = std::string(OMBRIX_TOOL_EXE) + " mtf --edge " + images;
  const std::string shown = (dir / "shown.txt").string();
  ASSERT_EQ(std::system(("cd " + Quote(dir.string()) + " && script -qec " +
                         Quote(command + " --out loud") + " /dev/null > " + Quote(shown))
                            .c_str()),
            0);
  EXPECT_NE(ReadText(shown).find("] 2/2"), std::string::npos) << ReadText(shown);
  ASSERT_EQ(std::system(("cd " + Quote(dir.string()) + " && script -qec " +
                         Quote(command + " --out quiet --quiet") + " /dev/null > " + Quote(shown))
                            .c_str()),
            0);
  EXPECT_EQ(ReadText(shown).find("] 2/2"), std::string::npos) << ReadText(shown);
  EXPECT_TRUE(fs::exists(dir / "quiet" / "results.json"));
}

}  // namespace

namespace {

using namespace tooltest;

// Largest resident set (kB) of any child process waited for so far.
long ChildrenPeakKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return usage.ru_maxrss;
}

TEST(ToolNoise, MemoryDoesNotGrowWithTheNumberOfFrames) {
  const fs::path dir = Scratch("noise_memory");
  // 1024 x 1024 16-bit frames: 2 MiB each, 80 MiB for the 40.
  const std::vector<cv::Mat> few = WriteOddFrames(dir / "few", 1024, 1024, 4, 5);
  const std::vector<cv::Mat> many = WriteOddFrames(dir / "many", 1024, 1024, 40, 6);
  // Under AddressSanitizer freed frames would wait in its quarantine and count as resident.
  const std::string noQuarantine = "ASAN_OPTIONS=\"${ASAN_OPTIONS}:quarantine_size_mb=0\"";
  ASSERT_EQ(RunTool({"noise", "few", "--out", "a", "--quiet"}, dir, noQuarantine).exitCode, 0);
  const long afterFew = ChildrenPeakKilobytes();
  ASSERT_EQ(RunTool({"noise", "many", "--out", "b", "--quiet"}, dir, noQuarantine).exitCode, 0);
  const long afterMany = ChildrenPeakKilobytes();
  // The stream holds a few frames whatever their number: 36 more frames add less than 8 of them.
  EXPECT_LT(afterMany - afterFew, 16 * 1024) << afterFew << " kB, then " << afterMany << " kB";
  // The in-memory stack holds them all, which this measurement sees.
  ASSERT_EQ(RunTool({"noise", "many", "--exact-stack", "--out", "c", "--quiet"}, dir).exitCode, 0);
  EXPECT_GT(ChildrenPeakKilobytes() - afterMany, 60 * 1024);
  fs::remove_all(dir);
}

}  // namespace
