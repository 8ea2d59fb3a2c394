// MTF from an edge profile: derivative, centring, window, spectrum, frequency axis, cut frequency,
// Nyquist sample, efficiency and LSF width.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>

#include "MtfReference.h"
#include "Random.h"
#include "mtf/Mtf.h"

namespace {

KProfile<double> Profile(std::vector<double> values) { return KProfile<double>(std::move(values)); }

double HammingWeight(int k, int n) {
  const int m = n / 2;
  const int d = std::max(n - m, m - 1);
  return 0.54 + 0.46 * std::cos((k - m) * CV_PI / d);
}

// Blurred step sampled at oversampling 4: Phi(x / sigma) with x in pixels.
KProfile<double> BlurredStep(int n, double sigma, double bins = 4.0) {
  std::vector<double> esf(n);
  for (int i = 0; i < n; ++i) {
    const double x = (i - n / 2) / bins;
    esf[i] = 0.5 * std::erfc(-x / (sigma * std::sqrt(2.0)));
  }
  return Profile(esf);
}

TEST(Mtf, PerfectStepNeverCrossesAndHasZeroEfficiency) {
  std::vector<double> esf(64, 0.0);
  for (int i = 32; i < 64; ++i) esf[i] = 1.0;
  MtfResult result;
  ComputeMtf(result, Profile(esf), 0.0f, 4.0f);
  ASSERT_EQ(result.mtfCopy.Size(), 32u);
  for (double v : result.mtfCopy.values) EXPECT_GT(v, 0.1);
  EXPECT_EQ(MtfCrossing(result, 0.1), -1.0);
  EXPECT_EQ(result.cutFrequency, -1.0f);
  EXPECT_GT(result.nyquist, 0.0f);
  EXPECT_EQ(result.efficiency, 0.0f);
}

TEST(Mtf, DerivativeComputesNMinusThreePositionsThenRepeatsTheLast) {
  // esf[i] = -i^2 gives 0.5 (esf[j + 2] - esf[j]) = -2j - 2; its sum is negative, so no centring
  // shift moves it and the LSF is the derivative times the window.
  const int n = 10;
  std::vector<double> esf(n);
  for (int i = 0; i < n; ++i) esf[i] = -static_cast<double>(i * i);
  MtfResult result;
  ComputeMtf(result, Profile(esf), 0.0f, 4.0f);
  ASSERT_EQ(result.lsf.Size(), 10u);
  for (int j = 0; j < n; ++j) {
    const int computed = std::min(j, n - 4);  // positions 0 .. N - 4, then the fill
    const double derivative = -2.0 * computed - 2.0;
    EXPECT_DOUBLE_EQ(result.lsf[j], derivative * HammingWeight(j + 1, n)) << j;
  }
  EXPECT_EQ(result.esf.values, esf);
}

// The LSF of an ESF of n samples that steps from `from` to `to` at index at: it must hold
// value x the Hamming weight at pairStart and pairStart + 1 and nothing elsewhere.
void ExpectStepLsf(int n, int at, double from, double to, int pairStart, double value) {
  std::vector<double> esf(static_cast<std::size_t>(n), from);
  for (int i = at; i < n; ++i) esf[static_cast<std::size_t>(i)] = to;
  MtfResult result;
  ComputeMtf(result, Profile(esf), 0.0f, 4.0f);
  for (int j = 0; j < n; ++j) {
    const bool inPair = j == pairStart || j == pairStart + 1;
    EXPECT_DOUBLE_EQ(result.lsf[j], inPair ? value * HammingWeight(j + 1, n) : 0.0) << j;
  }
}

TEST(Mtf, LsfSummingToZeroOrLessIsNotShifted) {
  // A falling edge far from the centre: its LSF is negative and stays where it is;
  // 0.5 (esf[j + 2] - esf[j]) is -0.5 at j = 6 and 7 only.
  ExpectStepLsf(40, 8, 1.0, 0.0, 6, -0.5);
}

TEST(Mtf, CentringRotatesTheCentroidOntoHalfNRoundingHalfAwayFromZero) {
  // Step at 11: the LSF is 0.5 at 9 and 10, centroid 9.5; shift = round(9.5 - 32) = -23, so the
  // element at index 41 becomes the first and the pair moves to 32 and 33.
  ExpectStepLsf(64, 11, 0.0, 1.0, 32, 0.5);
}

TEST(Mtf, CentringOfAnOddProfileTargetsNTimesHalfRoundedUp) {
  // N = 65: the target index is round(32.5) = 33, not 65 / 2 = 32. Centroid 9.5, shift =
  // round(9.5 - 33) = -24, so the element at index 41 becomes the first and the pair moves to 33
  // and 34 (with 32 it would land on 32 and 33).
  ExpectStepLsf(65, 11, 0.0, 1.0, 33, 0.5);
}

TEST(Mtf, SpectrumMatchesAStraightforwardTransform) {
  datagen::Random random(21);
  for (int trial = 0; trial < 20; ++trial) {
    const int n = random.Int(3, 300);
    std::vector<double> esf(n);
    double level = 0.0;
    for (double& v : esf) {
      level += random.Uniform(0.0, 1.0);
      v = level;
    }
    const float slope = static_cast<float>(random.Uniform(-0.3, 0.3));
    MtfResult result;
    ComputeMtf(result, Profile(esf), slope, 4.0f);
    std::vector<double> magnitude = oracle::SpectrumMagnitude(result.lsf.values);
    const int m = (n + 1) / 2;
    ASSERT_EQ(result.mtf.Size(), static_cast<std::size_t>(m));
    for (int k = 0; k < m; ++k) {
      double expected = magnitude[k] / magnitude[0];
      if (k > 0) {
        const double x = CV_PI * k / (m + 1);
        expected *= std::min(x / std::sin(x), 10.0);
      }
      EXPECT_NEAR(result.mtf[k], expected, 1e-9 * std::max(1.0, expected)) << trial << " " << k;
    }
    EXPECT_EQ(result.mtfCopy.values, result.mtf.values);
  }
}

TEST(Mtf, CorrectionIsCappedAtTen) {
  // N = 64, M = 32: at k = 31 the factor x / sin x is 15.8, capped to 10; at k = 29 it is 7.4.
  const KProfile<double> esf = BlurredStep(64, 0.1);
  MtfResult result;
  ComputeMtf(result, esf, 0.0f, 4.0f);
  std::vector<double> magnitude = oracle::SpectrumMagnitude(result.lsf.values);
  const double raw = magnitude[31] / magnitude[0];
  ASSERT_GT(raw, 1e-6);
  EXPECT_NEAR(result.mtf[31] / raw, 10.0, 1e-6);
  const double x29 = CV_PI * 29 / 33;
  EXPECT_NEAR(result.mtf[29] / (magnitude[29] / magnitude[0]), x29 / std::sin(x29), 1e-6);
  EXPECT_LT(x29 / std::sin(x29), 10.0);
}

TEST(Mtf, FrequenciesAreFormedInFloatAndDividedInDouble) {
  const KProfile<double> esf = BlurredStep(301, 1.0);
  MtfResult result;
  ComputeMtf(result, esf, 0.07f, 4.0f);
  const float pitch = std::cos(std::atan(0.07f));
  EXPECT_EQ(result.pitch, pitch);
  ASSERT_EQ(result.frequencies.Size(), 151u);
  for (int i = 0; i < 151; ++i) {
    const double expected =
        static_cast<double>(static_cast<float>(i) * 4.0f) / static_cast<double>(301.0f * pitch);
    EXPECT_EQ(result.frequencies[i], expected) << i;
  }
}

TEST(Mtf, ResolutionZeroOrOneMeansPixelsAnd254MeansTenthMillimetres) {
  // N = 210 keeps the Nyquist sample clear of a tie (sample i is above the limit when
  // i > N / 8 - 1), so both units pick the same sample.
  const KProfile<double> esf = BlurredStep(210, 1.0);
  const float slope = 0.1f;
  const float cosine = std::cos(std::atan(slope));
  for (float resolution : {0.0f, 1.0f}) {
    MtfResult result;
    result.resolution = resolution;
    ComputeMtf(result, esf, slope, 4.0f);
    EXPECT_EQ(result.pitch, cosine);
    EXPECT_EQ(result.frequencies[1], 4.0 / static_cast<double>(210.0f * cosine));
  }
  MtfResult pixels;
  ComputeMtf(pixels, esf, slope, 4.0f);
  MtfResult millimetres;
  millimetres.resolution = 254.0f;
  ComputeMtf(millimetres, esf, slope, 4.0f);
  EXPECT_EQ(millimetres.pitch, cosine * (25.4f / 254.0f));
  EXPECT_NEAR(millimetres.pitch, 0.1 * cosine, 1e-7);
  // The same edge: ten times the frequencies in cycles per mm.
  EXPECT_NEAR(millimetres.cutFrequency, 10.0 * pixels.cutFrequency, 1e-4);
  EXPECT_NEAR(millimetres.nyquist, 10.0 * pixels.nyquist, 1e-4);
  EXPECT_FLOAT_EQ(millimetres.efficiency, pixels.efficiency);
}

TEST(Mtf, NyquistIsTheFirstSampleAboveHalfPitchLessOneStep) {
  // N = 400, slope 0: f[i] = 0.01 i; limit = 0.5 - (0.01 + 2.2e-16) sits just below 0.49, so the
  // Nyquist sample is f[49] = 0.49.
  const KProfile<double> esf = BlurredStep(400, 1.0);
  MtfResult result;
  ComputeMtf(result, esf, 0.0f, 4.0f);
  EXPECT_EQ(result.frequencies[49], 0.49);
  EXPECT_EQ(result.nyquist, 0.49f);
  EXPECT_FLOAT_EQ(result.efficiency, result.cutFrequency * 100.0f / 0.49f);
}

TEST(Mtf, OneOrTwoSamplesGiveNoNyquistAndZeroEfficiency) {
  for (const std::vector<double>& esf :
       {std::vector<double>{}, std::vector<double>{3.0}, std::vector<double>{0.0, 1.0}}) {
    MtfResult result;
    ComputeMtf(result, Profile(esf), 0.0f, 4.0f);
    EXPECT_EQ(result.mtf.Size(), (esf.size() + 1) / 2);
    EXPECT_EQ(result.nyquist, -1.0f);
    EXPECT_EQ(result.cutFrequency, -1.0f);
    EXPECT_EQ(result.efficiency, 0.0f);
  }
}

TEST(Mtf, EfficiencyNeverExceedsOneHundred) {
  // sigma 0.3 px: the MTF reaches 0.1 well beyond the Nyquist sample.
  const KProfile<double> esf = BlurredStep(400, 0.3);
  MtfResult result;
  ComputeMtf(result, esf, 0.05f, 4.0f);
  EXPECT_GT(result.cutFrequency, result.nyquist);
  EXPECT_EQ(result.efficiency, 100.0f);
}

TEST(Mtf, BlurredStepMatchesItsGaussianTransfer) {
  // An ideal sampled Gaussian edge (no pixel aperture): MTF = exp(-2 pi^2 sigma^2 f^2) apart from
  // the profile's own bin sampling; the cut frequency lands within 1 %.
  const double sigma = 1.2;
  const KProfile<double> esf = BlurredStep(512, sigma);
  MtfResult result;
  ComputeMtf(result, esf, 0.0f, 4.0f);
  const double truth = std::sqrt(std::log(10.0) / (2.0 * CV_PI * CV_PI)) / sigma;
  EXPECT_NEAR(result.cutFrequency, truth, 0.01 * truth);
  // FWHM of a Gaussian: 2.3548 sigma.
  EXPECT_NEAR(result.fwhm, 2.3548 * sigma, 0.05);
}

MtfResult WithCurve(std::vector<double> mtf, std::vector<double> frequencies) {
  MtfResult result;
  result.mtfCopy = Profile(std::move(mtf));
  result.frequencies = Profile(std::move(frequencies));
  return result;
}

TEST(Mtf, CrossingInterpolatesTheFirstFallToTheLevel) {
  const MtfResult result =
      WithCurve({1.0, 0.5, 0.1, 0.05, 0.2, 0.01}, {0, 0.1, 0.2, 0.3, 0.4, 0.5});
  EXPECT_DOUBLE_EQ(MtfCrossing(result, 0.3), 0.15);
  EXPECT_DOUBLE_EQ(MtfCrossing(result, 0.1), 0.2);  // exactly equal at sample 2
  EXPECT_DOUBLE_EQ(MtfCrossing(result, 0.08), 0.2 + 0.1 * (0.02 / 0.05));
  EXPECT_EQ(MtfCrossing(result, 0.001), -1.0);
  EXPECT_EQ(MtfCrossing(result, 1.0), -1.0);
}

TEST(Mtf, CrossingFewerThanTwoSamplesHaveNoCrossing) {
  EXPECT_EQ(MtfCrossing(WithCurve({1.0}, {0.0}), 0.1), -1.0);
  EXPECT_EQ(MtfCrossing(WithCurve({}, {}), 0.1), -1.0);
  EXPECT_DOUBLE_EQ(MtfCrossing(WithCurve({1.0, 0.0}, {0.0, 0.5}), 0.1), 0.45);
}

TEST(Mtf, CrossingBeyondAShorterFrequencyAxisIsNotAvailable) {
  // The curve falls to 0.1 between samples 3 and 4; the axis ends at sample 2 or 3.
  const std::vector<double> curve = {1.0, 0.8, 0.6, 0.4, 0.05, 0.01};
  EXPECT_EQ(MtfCrossing(WithCurve(curve, {0.0, 0.1, 0.2}), 0.1), -1.0);
  EXPECT_EQ(MtfCrossing(WithCurve(curve, {0.0, 0.1, 0.2, 0.3}), 0.1), -1.0);
  EXPECT_EQ(MtfCrossing(WithCurve(curve, {}), 0.1), -1.0);
  // Exactly on a sample past the axis.
  EXPECT_EQ(MtfCrossing(WithCurve({1.0, 0.5, 0.1}, {0.0, 0.1}), 0.1), -1.0);
  // Long enough, it interpolates as usual.
  EXPECT_DOUBLE_EQ(MtfCrossing(WithCurve(curve, {0.0, 0.1, 0.2, 0.3, 0.4}), 0.4), 0.3);
  EXPECT_DOUBLE_EQ(MtfCrossing(WithCurve(curve, {0.0, 0.1, 0.2, 0.3, 0.4}), 0.1),
                   0.3 + 0.1 * (0.3 / 0.35));
}

MtfResult WithLsf(std::vector<double> lsf) {
  MtfResult result;
  result.lsf = Profile(std::move(lsf));
  return result;
}

TEST(Mtf, LsfWidthInterpolatesBothHalfMaximumEdges) {
  // Peak 4 at 3, half 2: left edge 1.5, right edge 4.5.
  EXPECT_DOUBLE_EQ(LsfWidth(WithLsf({0, 1, 3, 4, 3, 1, 0}), 1.0f), 3.0);
  EXPECT_DOUBLE_EQ(LsfWidth(WithLsf({0, 1, 3, 4, 3, 1, 0}), 4.0f), 0.75);
}

TEST(Mtf, LsfWidthPeakTiesGoToTheLaterIndex) {
  // Peak at index 2 (not 1): left edge 0.5, right edge 2.5. With the peak at 1 the left edge would
  // not be searched and the width would be 2.5.
  EXPECT_DOUBLE_EQ(LsfWidth(WithLsf({0, 4, 4, 0}), 1.0f), 2.0);
}

TEST(Mtf, LsfWidthTheLastFallBelowHalfWins) {
  // Falls below half at 3 and again at 6: the second one gives the right edge.
  // Left: i = 1 (3 > 2): 0 + (2 - 0) / 3. Right: i = 6: 5 + (2 - 3) / (0 - 3).
  EXPECT_DOUBLE_EQ(LsfWidth(WithLsf({0, 3, 4, 1, 1, 3, 0}), 1.0f), 5.0 + 1.0 / 3.0 - 2.0 / 3.0);
}

TEST(Mtf, LsfWidthMissingEdgesCountAsZero) {
  // Peak at 0: no left edge; never falls below half: no right edge.
  EXPECT_DOUBLE_EQ(LsfWidth(WithLsf({4, 3, 3}), 1.0f), 0.0);
  EXPECT_DOUBLE_EQ(LsfWidth(WithLsf({}), 1.0f), 0.0);
}

}  // namespace
