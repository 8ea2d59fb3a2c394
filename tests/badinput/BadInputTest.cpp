// The bad-input matrix: every public image operation of the core and of the processing plug-in
// against a table of hostile images (empty, 1x1, 1xN, Nx1, 3-D, every depth and channel count,
// non-continuous views, NaN and infinite samples) and parameters. Each cell names its expected
// outcome: the operation's own named error (code and function), an error passed on from OpenCV,
// the "not available" -1, or a result, which must equal the result on a continuous clone. In every
// cell the caller's image is left as it was. The program runs under a memory cap in CI, so an
// unbounded allocation fails it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "DarkChamberInspection.h"
#include "LightSourceCalibration.h"
#include "OmbrixProcessing.h"
#include "StackStatistics.h"
#include "filters/FilterCosmicRay.h"
#include "filters/GaussianBlur.h"
#include "filters/Wavelet.h"
#include "mtf/EdgeProfile.h"
#include "mtf/MtfMeasurement.h"
#include "mtf/TargetDetection.h"
#include "stack/TemporalNoise.h"

namespace {

// --- Inputs ---

struct Input {
  std::string name;
  cv::Mat image;
};

bool IsTwoD(const cv::Mat& m) { return m.dims == 2; }
bool HasPixels(const cv::Mat& m) { return m.data != nullptr && m.total() > 0; }
bool IsFloat(const cv::Mat& m) { return m.depth() == CV_32F || m.depth() == CV_64F; }

cv::Mat Ramp(int rows, int cols, int type) {
  cv::Mat values(rows, cols, CV_64FC(CV_MAT_CN(type)));
  cv::randu(values, 0.0, 100.0);
  cv::Mat out;
  values.convertTo(out, type);
  return out;
}

std::vector<Input> Inputs() {
  cv::theRNG().state = 12345;
  std::vector<Input> inputs;
  inputs.push_back({"empty", cv::Mat()});
  inputs.push_back({"empty16U", cv::Mat(0, 0, CV_16UC1)});
  inputs.push_back({"1x1", Ramp(1, 1, CV_16UC1)});
  inputs.push_back({"1xN", Ramp(1, 40, CV_16UC1)});
  inputs.push_back({"Nx1", Ramp(40, 1, CV_16UC1)});
  const int sizes[] = {3, 12, 12};
  inputs.push_back({"3D", cv::Mat(3, sizes, CV_16UC1, cv::Scalar(7))});
  const int depths[] = {CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F};
  for (const int depth : depths) {
    for (int channels = 1; channels <= 4; ++channels) {
      const int type = CV_MAKETYPE(depth, channels);
      inputs.push_back({"type" + std::to_string(type), Ramp(24, 20, type)});
    }
  }
  const cv::Mat big = Ramp(40, 40, CV_16UC1);
  inputs.push_back({"view16U", big(cv::Rect(3, 5, 24, 20))});
  const cv::Mat bigFloat = Ramp(40, 40, CV_32FC1);
  inputs.push_back({"view32F", bigFloat(cv::Rect(3, 5, 24, 20))});
  for (const float bad :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity()}) {
    cv::Mat f = Ramp(24, 20, CV_32FC1);
    f.at<float>(12, 10) = bad;
    inputs.push_back({std::string("32F_") + (std::isnan(bad) ? "nan"
                                             : bad > 0       ? "inf"
                                                             : "-inf"),
                      f});
    cv::Mat all(24, 20, CV_32FC1, cv::Scalar(bad));
    inputs.push_back({std::string("32F_all_") + (std::isnan(bad) ? "nan"
                                                 : bad > 0       ? "inf"
                                                                 : "-inf"),
                      all});
  }
  return inputs;
}

// --- Outcomes ---

enum class Kind { Result, ResultOfView, NamedError, OpenCvError, InvalidArgument, NotAvailable };

struct Outcome {
  Kind kind = Kind::Result;
  int code = 0;
  std::string function;
  cv::Mat result;    // for Result
  double value = 0;  // for scalar results
};

struct Expected {
  Kind kind = Kind::Result;
  int code = 0;
  std::string function;
};

Expected Result() { return {Kind::Result, 0, ""}; }
// A result that may differ from the clone's: the operation reads beyond a view by design.
Expected ResultOfView() { return {Kind::ResultOfView, 0, ""}; }
Expected Named(int code, const std::string& function) { return {Kind::NamedError, code, function}; }
Expected FromOpenCv() { return {Kind::OpenCvError, 0, ""}; }
Expected Invalid() { return {Kind::InvalidArgument, 0, ""}; }
Expected NotAvailable() { return {Kind::NotAvailable, 0, ""}; }

using Operation = std::function<Outcome(const cv::Mat&)>;
using Rule = std::function<Expected(const cv::Mat&)>;

struct Row {
  std::string operation;
  Operation run;
  Rule expect;
};

Outcome Capture(const Operation& op, const cv::Mat& input) {
  try {
    return op(input);
  } catch (const cv::Exception& e) {
    Outcome o;
    o.kind = Kind::OpenCvError;
    o.code = e.code;
    o.function = e.func;
    return o;
  } catch (const std::invalid_argument&) {
    Outcome o;
    o.kind = Kind::InvalidArgument;
    return o;
  }
}

Outcome ImageResult(const cv::Mat& m) {
  Outcome o;
  o.result = m.clone();
  return o;
}

Outcome ScalarResult(double v) {
  Outcome o;
  if (v == -1.0) o.kind = Kind::NotAvailable;
  o.value = v;
  return o;
}

bool SameBytes(const cv::Mat& a, const cv::Mat& b) {
  if (a.total() == 0 && b.total() == 0) return true;
  if (a.dims != b.dims || a.type() != b.type() || a.total() != b.total()) return false;
  if (a.dims > 2) return std::memcmp(a.data, b.data, a.total() * a.elemSize()) == 0;
  for (int y = 0; y < a.rows; ++y) {
    if (std::memcmp(a.ptr(y), b.ptr(y), a.cols * a.elemSize()) != 0) return false;
  }
  return true;
}

void CheckRow(const Row& row, const Input& input) {
  SCOPED_TRACE(row.operation + " on " + input.name);
  const int failuresBefore =
      ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
  const cv::Mat before = input.image.clone();
  const Expected expected = row.expect(input.image);
  const Outcome outcome = Capture(row.run, input.image);
  EXPECT_TRUE(SameBytes(input.image, before)) << "the caller's image changed";
  switch (expected.kind) {
    case Kind::NamedError:
      ASSERT_EQ(outcome.kind, Kind::OpenCvError);
      EXPECT_EQ(outcome.code, expected.code);
      EXPECT_EQ(outcome.function, expected.function);
      break;
    case Kind::OpenCvError:
      EXPECT_EQ(outcome.kind, Kind::OpenCvError);
      break;
    case Kind::InvalidArgument:
      EXPECT_EQ(outcome.kind, Kind::InvalidArgument);
      break;
    case Kind::NotAvailable:
      EXPECT_EQ(outcome.kind, Kind::NotAvailable);
      break;
    case Kind::ResultOfView:
      EXPECT_TRUE(outcome.kind == Kind::Result || outcome.kind == Kind::NotAvailable)
          << "threw: code " << outcome.code << " from " << outcome.function;
      break;
    case Kind::Result: {
      ASSERT_TRUE(outcome.kind == Kind::Result || outcome.kind == Kind::NotAvailable)
          << "threw: code " << outcome.code << " from " << outcome.function;
      // The same operation on a continuous deep copy gives the same result.
      const Outcome again = Capture(row.run, input.image.clone());
      EXPECT_EQ(again.kind, outcome.kind);
      EXPECT_TRUE(SameBytes(again.result, outcome.result));
      EXPECT_TRUE(again.value == outcome.value ||
                  (std::isnan(again.value) && std::isnan(outcome.value)));
      break;
    }
  }
  if (::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count() !=
      failuresBefore) {
    std::printf("CELL %s | %s | expected %d | got %d code %d %s\n", row.operation.c_str(),
                input.name.c_str(), static_cast<int>(expected.kind), static_cast<int>(outcome.kind),
                outcome.code, outcome.function.substr(0, 40).c_str());
  }
}

// --- The table ---

const char* const kMedianBlur = "CFilterCosmicRay::MedianBlur";

Expected MedianRule(const cv::Mat& m) {
  if (!HasPixels(m)) return Named(cv::Error::StsBadArg, kMedianBlur);
  if (!IsTwoD(m)) return FromOpenCv();
  if (m.type() != CV_16UC1) return Named(cv::Error::StsNotImplemented, kMedianBlur);
  return Result();
}

// cv::medianBlur with a 3 x 3 window: 8U, 16U, 16S and 32F, one to four channels.
Expected SquareMedianRule(const cv::Mat& m) {
  if (!HasPixels(m) || !IsTwoD(m)) return FromOpenCv();
  const int d = m.depth();
  if (d == CV_8U || d == CV_16U || d == CV_16S || d == CV_32F) return Result();
  return FromOpenCv();
}

// cv::filter2D takes 8U, 16U, 16S, 32F and 64F with up to four channels, and no empty or 3-D
// image. On a view it reads the view's surroundings as its border (OpenCV's rule for regions of
// interest), so the result of a view is not that of its clone.
Expected FilterRule(const cv::Mat& m) {
  if (!HasPixels(m) || !IsTwoD(m)) return FromOpenCv();
  if (m.depth() == CV_8S || m.depth() == CV_32S) return FromOpenCv();
  if (!m.isContinuous()) return ResultOfView();
  return Result();
}

// --- Operations whose outcome is the image they write ---

using Writer = std::function<void(const cv::Mat& src, cv::Mat& dst)>;

Operation IntoImage(Writer write) {
  return [write](const cv::Mat& m) {
    cv::Mat dst;
    write(m, dst);
    return ImageResult(dst);
  };
}

Operation MedianBlur(int radius) {
  return IntoImage(
      [radius](const cv::Mat& m, cv::Mat& dst) { CFilterCosmicRay::MedianBlur(m, dst, radius); });
}

// Threshold 100; an empty mask selects every pixel.
Operation CosmicRay(int radius, const cv::Mat& mask) {
  return IntoImage([radius, mask](const cv::Mat& m, cv::Mat& dst) {
    CFilterCosmicRay(radius, 100).Process(m, dst, mask);
  });
}

// The filter is made inside the operation: a sigma it refuses is part of the outcome.
Operation Gaussian(int sigma, bool separable) {
  return IntoImage([sigma, separable](const cv::Mat& m, cv::Mat& dst) {
    CGaussianBlur(sigma).Apply(m, dst, separable);
  });
}

std::vector<Row> Table() {
  std::vector<Row> rows;
  rows.push_back({"MedianBlur r3", MedianBlur(3), MedianRule});
  rows.push_back({"MedianBlur r2^30", MedianBlur(1 << 30), MedianRule});
  rows.push_back({"MedianBlur r0", MedianBlur(0),
                  [](const cv::Mat&) { return Named(cv::Error::StsBadArg, kMedianBlur); }});
  rows.push_back({"CosmicRay r10", CosmicRay(10, cv::Mat()), MedianRule});
  rows.push_back({"CosmicRay r10 in place",
                  [](const cv::Mat& m) {
                    // Source and destination are one matrix header's data.
                    cv::Mat inOut = m.clone();
                    const cv::Mat expected = inOut.clone();
                    cv::Mat reference;
                    CFilterCosmicRay(10, 100).ProcessReference(expected, reference, cv::Mat());
                    CFilterCosmicRay(10, 100).Process(inOut, inOut, cv::Mat());
                    if (!SameBytes(inOut, reference)) throw std::logic_error("aliasing changed it");
                    return ImageResult(inOut);
                  },
                  MedianRule});
  rows.push_back({"CosmicRay r1", CosmicRay(1, cv::Mat()), SquareMedianRule});
  rows.push_back({"CosmicRay r3 mask of another size",
                  CosmicRay(3, cv::Mat(5, 7, CV_8UC1, cv::Scalar(1))), [](const cv::Mat& m) {
                    const Expected median = MedianRule(m);
                    return median.kind == Kind::Result ? FromOpenCv() : median;
                  }});
  const int maskSizes[] = {2, 2, 2};
  rows.push_back({"CosmicRay r3 3-D mask",
                  CosmicRay(3, cv::Mat(3, maskSizes, CV_8UC1, cv::Scalar(1))),
                  [](const cv::Mat& m) {
                    const Expected median = MedianRule(m);
                    return median.kind == Kind::Result ? FromOpenCv() : median;
                  }});
  rows.push_back({"Gaussian separable", Gaussian(2, true), FilterRule});
  rows.push_back({"Gaussian 2-D huge sigma", Gaussian(std::numeric_limits<int>::max(), false),
                  // The non-separable engine takes 8S and 32S too.
                  [](const cv::Mat& m) {
                    if (!HasPixels(m) || !IsTwoD(m)) return FromOpenCv();
                    if (!m.isContinuous()) return ResultOfView();
                    return Result();
                  }});
  rows.push_back({"PowerProcess",
                  [](const cv::Mat& m) {
                    CGaussianBlur blur(2);
                    return ImageResult(blur.PowerProcess(m, {2, 3}));
                  },
                  [](const cv::Mat& m) {
                    if (m.data == nullptr) return Result();  // an empty result, no error
                    return FilterRule(m);
                  }});
  rows.push_back({"Wavelet",
                  [](const cv::Mat& m) {
                    CWavelet wavelet({0.0625, 0.25, 0.375, 0.25, 0.0625}, 4.0f);
                    wavelet.Decompose(m, 0, cv::Mat());
                    cv::Mat out;
                    const cv::Mat mask = wavelet.Details().empty()
                                             ? cv::Mat()
                                             : cv::Mat::ones(wavelet.Details()[0].size(), CV_8U);
                    wavelet.ExtractStructures(out, 0, 3.0f, mask, cv::Mat());
                    return ImageResult(out);
                  },
                  [](const cv::Mat& m) {
                    if (m.rows == 0 || m.cols == 0 || m.data == nullptr) return Result();
                    if (!IsTwoD(m)) return FromOpenCv();
                    // Signed 16-bit planes: the smoothing takes up to four channels; the
                    // mean/deviation of the structure step one only.
                    if (m.channels() != 1) return FromOpenCv();
                    return Result();
                  }});
  rows.push_back({"DetectTargets",
                  [](const cv::Mat& m) {
                    TargetDetectionSettings settings;
                    std::vector<ContourRecord> targets;
                    DetectTargets(settings, targets, m);
                    return ScalarResult(static_cast<double>(targets.size()));
                  },
                  [](const cv::Mat& m) {
                    if (!HasPixels(m)) return Result();  // nothing to find
                    if (!IsTwoD(m)) return Named(cv::Error::StsBadArg, "DetectTargets");
                    return Result();
                  }});
  rows.push_back({"MeasureEdge",
                  [](const cv::Mat& m) {
                    CMtfMeasurement measurement;
                    MtfResult result;
                    return ScalarResult(measurement.MeasureEdge(m, result) ? result.efficiency
                                                                           : -1.0);
                  },
                  [](const cv::Mat& m) {
                    if (!HasPixels(m) || !IsTwoD(m) || m.rows < 6 || m.cols < 6) {
                      return NotAvailable();
                    }
                    return Result();
                  }});
  rows.push_back({"ComputeMtf (plug-in)",
                  [](const cv::Mat& m) {
                    COmbrixProcessing plugin;
                    return ScalarResult(plugin.ComputeMtf(m));
                  },
                  [](const cv::Mat&) { return NotAvailable(); }});
  rows.push_back({"BuildEdgeProfile",
                  [](const cv::Mat& m) {
                    EdgeProfiler profiler;
                    profiler.threadCount = 3;
                    const std::vector<double> esf = BuildEdgeProfile(profiler, m, 0.1f);
                    return ImageResult(cv::Mat(esf, true));
                  },
                  [](const cv::Mat& m) {
                    if (m.empty()) return Named(cv::Error::StsBadArg, "BuildEdgeProfile");
                    if (m.channels() != 1)
                      return Named(cv::Error::StsUnsupportedFormat, "BuildEdgeProfile");
                    if (!IsTwoD(m)) return Named(cv::Error::StsBadArg, "BuildEdgeProfile");
                    return Result();
                  }});
  rows.push_back({"TemporalNoise",
                  [](const cv::Mat& m) {
                    CTemporalNoise noise;
                    noise.AddImage(m);
                    noise.AddImage(m);
                    return ImageResult(noise.Compute(
                        [](std::vector<unsigned short>& v) { return static_cast<float>(v[0]); }));
                  },
                  [](const cv::Mat& m) {
                    if (m.channels() != 1 || !HasPixels(m) || !IsTwoD(m)) return Invalid();
                    // The frames are flattened with cv::Mat::reshape, which needs them continuous.
                    if (!m.isContinuous()) return FromOpenCv();
                    return Result();
                  }});
  rows.push_back({"LightSourceFactor",
                  [](const cv::Mat& m) { return ScalarResult(CLightSourceCalibration::Factor(m)); },
                  [](const cv::Mat& m) {
                    if (!HasPixels(m) || m.channels() != 1 || !IsTwoD(m) || m.rows < 2 ||
                        m.cols < 2) {
                      return NotAvailable();
                    }
                    cv::Mat values;
                    m(CLightSourceCalibration::CentralRegion(m.size())).convertTo(values, CV_64F);
                    if (!cv::checkRange(values)) return NotAvailable();
                    return Result();
                  }});
  rows.push_back(
      {"CountDarkChamberDefects",
       [](const cv::Mat& m) { return ScalarResult(CDarkChamberInspection::CountDefects(m)); },
       [](const cv::Mat& m) {
         if (!HasPixels(m) || m.channels() != 1 || !IsTwoD(m)) return NotAvailable();
         if (IsFloat(m)) {
           cv::Mat finite;
           m.convertTo(finite, CV_64F);
           if (cv::countNonZero(finite == finite) == 0) return NotAvailable();
         }
         return Result();
       }});
  rows.push_back({"StackAverage", IntoImage([](const cv::Mat& m, cv::Mat& dst) {
                    CStackStatistics::Average({m, m, m}, dst);
                  }),
                  [](const cv::Mat& m) {
                    if (!HasPixels(m) || !IsTwoD(m)) return FromOpenCv();
                    return Result();
                  }});
  return rows;
}

class BadInput : public ::testing::TestWithParam<Row> {};

TEST_P(BadInput, EveryInputGetsItsNamedOutcome) {
  for (const Input& input : Inputs()) CheckRow(GetParam(), input);
}

std::string RowName(const ::testing::TestParamInfo<Row>& info) {
  std::string name;
  for (const char c : info.param.operation)
    name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(Core, BadInput, ::testing::ValuesIn(Table()), RowName);

TEST(BadParameters, ZeroNegativeNonFiniteAndHugeParametersGetTheirNamedErrors) {
  const cv::Mat region = cv::Mat(20, 20, CV_16UC1, cv::Scalar(100));
  for (const float slope : {std::numeric_limits<float>::quiet_NaN(), 1e30f}) {
    EdgeProfiler profiler;
    EXPECT_THROW(BuildEdgeProfile(profiler, region, slope), cv::Exception);
  }
  EXPECT_THROW(CGaussianBlur(-3), cv::Exception);
  CGaussianBlur blur(1);
  EXPECT_THROW(blur.GaussianKernel2D(1.0, 0.0), cv::Exception);
  TargetDetectionSettings settings;
  settings.scale = std::numeric_limits<double>::quiet_NaN();
  std::vector<ContourRecord> targets;
  EXPECT_THROW(DetectTargets(settings, targets, region), cv::Exception);
  COmbrixProcessing plugin;
  AlgoParameters p{};
  p.cosmicRayRadius = 1000000;
  p.maxObjectArea = 1000;
  p.thresholdFactor = 3.2f;
  EXPECT_FALSE(plugin.SetAlgoParameters(p));
  cv::Mat dst;
  EXPECT_THROW(CFilterCosmicRay::MedianBlur(region, dst, -1), cv::Exception);
  EXPECT_EQ(CLightSourceCalibration::Factor(region, -1.0), -1.0f);
  EXPECT_EQ(CLightSourceCalibration::Factor(region, std::numeric_limits<double>::infinity()),
            -1.0f);
}

}  // namespace
