// Sensor model of the TemporalNoise data set: dark frames of a sensor whose temporal noise varies
// across the array. Shared by the generator, which draws the frames from it, and by the tests,
// which hold the measured noise image against the true per-pixel noise and its expected statistics.
//
// Model (all in DN):
//   frame_k(x, y) = clip(round(offset(x, y) + sigma(x, y) * z_k(x, y)), 0, 65535)
//   offset(x, y)  = kBaseOffset + kColumnOffsetSigma * zc(x) + kPixelOffsetSigma * zp(x, y)
//                   (fixed pattern: drawn once, identical in every frame)
//   sigma(x, y)   = kSigma0 * (1 + kModulation * u(x, y)) + kRampPerColumn * (x - (kCols - 1) / 2)
//   u(x, y)       = cos(2 pi x / kPeriod) * cos(2 pi y / kPeriod)
// with zc, zp and z_k independent standard normal deviates of datagen::Random::Normal (fixed
// seeds). The offsets stay within about 2700..3300 and the noise within +-6 sigma < 800, so the
// clip at 0 and 65535 is never reached.
//
// Expected spatial standard deviation of the noise image over the test region (x, y in
// 924..1123, 200 x 200 pixels), derivation:
// 1. Rounding to integers adds the variance 1/12 to every sample (Sheppard's correction, exact
//    enough for sigma >> 1), so the samples have the effective noise se^2 = sigma^2 + 1/12.
// 2. The per-pixel sample standard deviation s over K normal samples has E[s] = c4(K) se and
//    Var[s] = (1 - c4^2) se^2, c4(K) = sqrt(2 / (K - 1)) Gamma(K / 2) / Gamma((K - 1) / 2); its
//    relative spread sqrt(1 - c4^2) is close to 1 / sqrt(2 (K - 1)).
// 3. The population variance over the region's N = 40000 pixels of s (what cv::meanStdDev gives)
//    has the expectation  V = c4^2 Var_R(se) + (1 - c4^2) Mean_R(se^2) (1 - 1 / N): the spread of
//    the true noise seen through E[s], plus the sampling spread of each pixel.
// 4. The region spans 4 x 4 whole periods, so over it Mean(u) = 0, Mean(u^2) = 1/4, and u is
//    uncorrelated with x (its y factor sums to 0). Hence, with R = kRampPerColumn:
//      Mean_R(sigma)   = kSigma0 + R (1023.5 - 599.5)
//      Var_R(sigma)    = kSigma0^2 kModulation^2 / 4 + R^2 (200^2 - 1) / 12
//      Mean_R(se^2)    = Var_R(sigma) + Mean_R(sigma)^2 + 1/12
//      Var_R(se)       = Var_R(sigma) (1 - 1 / (12 Mean_R(sigma)^2))   (first order in 1/12)
// 5. The expected statistic is sqrt(V) (the bias of the square root is below 1e-5 here). With
//    K = 32, kSigma0 = 96.19, kModulation = 0.25 and R = 0.01 it is 17.4999, midway in [17, 18);
//    its own sampling error over 40000 pixels is about 0.055.
#pragma once

#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>

namespace datagen {
namespace temporal_noise {

constexpr int kFrames = 32;
constexpr int kRows = 1200;
constexpr int kCols = 1200;

constexpr double kBaseOffset = 3000.0;
constexpr double kColumnOffsetSigma = 15.0;
constexpr double kPixelOffsetSigma = 40.0;

constexpr double kSigma0 = 96.19;
constexpr double kModulation = 0.25;
constexpr int kPeriod = 50;
constexpr double kRampPerColumn = 0.01;

constexpr std::uint64_t kOffsetSeed = 0x7E4D0A11F1A7ull;
// Frame k draws its temporal noise from the generator seeded with kNoiseSeed + k.
constexpr std::uint64_t kNoiseSeed = 0x4015E5EED0000ull;

// The region the suite measures.
constexpr int kRegionX = 924;
constexpr int kRegionY = 924;
constexpr int kRegionSize = 200;

// True temporal noise of the pixel at column x, row y.
inline double TrueSigma(int x, int y) {
  const double u = std::cos(2.0 * CV_PI * x / kPeriod) * std::cos(2.0 * CV_PI * y / kPeriod);
  return kSigma0 * (1.0 + kModulation * u) + kRampPerColumn * (x - (kCols - 1) / 2.0);
}

// Noise of the rounded samples: the rounding adds a uniform error of variance 1/12.
inline double EffectiveSigma(int x, int y) {
  const double sigma = TrueSigma(x, y);
  return std::sqrt(sigma * sigma + 1.0 / 12.0);
}

// c4(n) = E[s] / sigma for n normal samples, through Gamma(n / 2) / Gamma((n - 1) / 2), which
// grows by the recurrence r(n + 1) = (n - 1) / (2 r(n)) from r(2) = 1 / sqrt(pi).
inline double C4(int n) {
  double ratio = 1.0 / std::sqrt(CV_PI);
  for (int m = 2; m < n; ++m) ratio = (m - 1) / (2.0 * ratio);
  return std::sqrt(2.0 / (n - 1)) * ratio;
}

struct RegionExpectation {
  double meanSigma;      // Mean_R(sigma)
  double varSigma;       // Var_R(sigma)
  double meanSquareSe;   // Mean_R(se^2)
  double varSe;          // Var_R(se)
  double c4;             // c4(kFrames)
  double truePart;       // c4^2 Var_R(se)
  double samplingPart;   // (1 - c4^2) Mean_R(se^2) (1 - 1 / N)
  double expectedStd;    // sqrt(truePart + samplingPart)
  double samplingError;  // standard error of the measured statistic
};

// The closed form of the derivation above.
inline RegionExpectation ExpectedRegionStatistic() {
  RegionExpectation e{};
  const double n = static_cast<double>(kRegionSize) * kRegionSize;
  const double centre = (kCols - 1) / 2.0;
  const double regionMeanX = kRegionX + (kRegionSize - 1) / 2.0;
  e.meanSigma = kSigma0 + kRampPerColumn * (regionMeanX - centre);
  e.varSigma = kSigma0 * kSigma0 * kModulation * kModulation / 4.0 +
               kRampPerColumn * kRampPerColumn * (kRegionSize * kRegionSize - 1.0) / 12.0;
  e.meanSquareSe = e.varSigma + e.meanSigma * e.meanSigma + 1.0 / 12.0;
  e.varSe = e.varSigma * (1.0 - 1.0 / (12.0 * e.meanSigma * e.meanSigma));
  e.c4 = C4(kFrames);
  const double c4Squared = e.c4 * e.c4;
  e.truePart = c4Squared * e.varSe;
  e.samplingPart = (1.0 - c4Squared) * e.meanSquareSe * (1.0 - 1.0 / n);
  e.expectedStd = std::sqrt(e.truePart + e.samplingPart);
  // The statistic's variance: each pixel's squared deviation d + e (d the true part, e the
  // sampling part of variance v) has variance 4 d^2 v + 2 v^2 for normal e; over N pixels the
  // variance of the mean square is that / N, and the square root halves the relative error.
  const double v = e.samplingPart;
  const double varianceOfSquare = (4.0 * e.truePart * v + 2.0 * v * v) / n;
  e.samplingError = std::sqrt(varianceOfSquare) / (2.0 * e.expectedStd);
  return e;
}

}  // namespace temporal_noise
}  // namespace datagen
