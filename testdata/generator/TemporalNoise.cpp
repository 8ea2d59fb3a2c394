// The TemporalNoise data set: kFrames dark frames "TemporalNoise/RawNoise_000.tif"... of a sensor
// with a fixed-pattern offset and a temporal noise that varies across the array, drawn from the
// model in TemporalNoiseModel.h, and "TemporalNoise/model.txt" recording the model, its truth and
// the expected statistic of the noise image.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "DataSet.h"
#include "Random.h"
#include "TemporalNoiseModel.h"

namespace {

using namespace datagen::temporal_noise;

std::string Format(const char* format, double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof(buffer), format, value);
  return buffer;
}

std::string ModelText(long long clipped, double bruteForceExpected) {
  const RegionExpectation e = ExpectedRegionStatistic();
  std::string text;
  text +=
      "TemporalNoise: dark frames of a sensor with fixed-pattern offset and varying temporal "
      "noise\n";
  text += "\n";
  text += "frames K = " + std::to_string(kFrames) + ", " + std::to_string(kCols) + " x " +
          std::to_string(kRows) + " pixels, 16-bit unsigned, RawNoise_000.tif ... RawNoise_" +
          Format("%03.0f", kFrames - 1) + ".tif\n";
  text += "frame_k(x, y) = clip(round(offset(x, y) + sigma(x, y) * z_k(x, y)), 0, 65535)\n";
  text += "offset(x, y)  = " + Format("%.1f", kBaseOffset) + " + " +
          Format("%.1f", kColumnOffsetSigma) + " * zc(x) + " + Format("%.1f", kPixelOffsetSigma) +
          " * zp(x, y)   (fixed pattern, same in every frame)\n";
  text += "sigma(x, y)   = " + Format("%.2f", kSigma0) + " * (1 + " + Format("%.2f", kModulation) +
          " * cos(2 pi x / " + std::to_string(kPeriod) + ") * cos(2 pi y / " +
          std::to_string(kPeriod) + ")) + " + Format("%.2f", kRampPerColumn) + " * (x - " +
          Format("%.1f", (kCols - 1) / 2.0) + ")\n";
  text += "zc, zp, z_k: standard normal deviates of datagen::Random::Normal; offsets from seed " +
          std::to_string(kOffsetSeed) + " (column terms first, then pixels row by row), frame k " +
          "from seed " + std::to_string(kNoiseSeed) + " + k (pixels row by row)\n";
  text += "samples clipped at 0 or 65535: " + std::to_string(clipped) + "\n";
  text += "\n";
  text += "Expected spatial standard deviation of the per-pixel sample standard deviation over\n";
  text += "the region x " + std::to_string(kRegionX) + ", y " + std::to_string(kRegionY) + ", " +
          std::to_string(kRegionSize) + " x " + std::to_string(kRegionSize) + ":\n";
  text += "  se^2 = sigma^2 + 1/12 (rounding); E[s] = c4 se, Var[s] = (1 - c4^2) se^2\n";
  text += "  V = c4^2 Var_R(se) + (1 - c4^2) Mean_R(se^2) (1 - 1/N), N = 40000\n";
  text += "  c4(K)           = " + Format("%.8f", e.c4) + "\n";
  text += "  Mean_R(sigma)   = " + Format("%.6f", e.meanSigma) + "\n";
  text += "  Var_R(sigma)    = " + Format("%.6f", e.varSigma) + "\n";
  text += "  Var_R(se)       = " + Format("%.6f", e.varSe) + "\n";
  text += "  Mean_R(se^2)    = " + Format("%.6f", e.meanSquareSe) + "\n";
  text += "  true part       = " + Format("%.6f", e.truePart) + "\n";
  text += "  sampling part   = " + Format("%.6f", e.samplingPart) + "\n";
  text += "  expected value  = " + Format("%.4f", e.expectedStd) + " (sampling error " +
          Format("%.4f", e.samplingError) + ")\n";
  text +=
      "  same expectation summed over the region's pixels: " + Format("%.4f", bruteForceExpected) +
      "\n";
  return text;
}

// The expectation of step 3 of the derivation evaluated pixel by pixel, as a check on the closed
// form.
double BruteForceExpected() {
  const double c4 = C4(kFrames);
  const double n = static_cast<double>(kRegionSize) * kRegionSize;
  double sumMean = 0.0;
  double sumSquareMean = 0.0;
  double sumVariance = 0.0;
  for (int y = kRegionY; y < kRegionY + kRegionSize; ++y) {
    for (int x = kRegionX; x < kRegionX + kRegionSize; ++x) {
      const double se = EffectiveSigma(x, y);
      sumMean += c4 * se;
      sumSquareMean += c4 * se * c4 * se;
      sumVariance += (1.0 - c4 * c4) * se * se;
    }
  }
  const double mean = sumMean / n;
  const double spread = sumSquareMean / n - mean * mean;
  return std::sqrt(spread + sumVariance / n * (1.0 - 1.0 / n));
}

void GenerateTemporalNoise(datagen::Output& out) {
  datagen::Random offsetRandom(kOffsetSeed);
  std::vector<double> columnOffset(kCols);
  for (double& value : columnOffset) value = kColumnOffsetSigma * offsetRandom.Normal();
  cv::Mat offset(kRows, kCols, CV_64F);
  cv::Mat sigma(kRows, kCols, CV_64F);
  for (int y = 0; y < kRows; ++y) {
    double* offsetRow = offset.ptr<double>(y);
    double* sigmaRow = sigma.ptr<double>(y);
    for (int x = 0; x < kCols; ++x) {
      offsetRow[x] = kBaseOffset + columnOffset[x] + kPixelOffsetSigma * offsetRandom.Normal();
      sigmaRow[x] = TrueSigma(x, y);
    }
  }

  long long clipped = 0;
  cv::Mat frame(kRows, kCols, CV_16U);
  for (int k = 0; k < kFrames; ++k) {
    datagen::Random noise(kNoiseSeed + static_cast<std::uint64_t>(k));
    for (int y = 0; y < kRows; ++y) {
      const double* offsetRow = offset.ptr<double>(y);
      const double* sigmaRow = sigma.ptr<double>(y);
      unsigned short* out16 = frame.ptr<unsigned short>(y);
      for (int x = 0; x < kCols; ++x) {
        double value = std::floor(offsetRow[x] + sigmaRow[x] * noise.Normal() + 0.5);
        if (value < 0.0 || value > 65535.0) {
          ++clipped;
          value = std::clamp(value, 0.0, 65535.0);
        }
        out16[x] = static_cast<unsigned short>(value);
      }
    }
    char name[64];
    std::snprintf(name, sizeof(name), "TemporalNoise/RawNoise_%03d.tif", k);
    out.WriteTiff(name, frame);
  }
  out.WriteText("TemporalNoise/model.txt", ModelText(clipped, BruteForceExpected()));
}

}  // namespace

OMBRIX_DATA_SET("TemporalNoise", GenerateTemporalNoise);
