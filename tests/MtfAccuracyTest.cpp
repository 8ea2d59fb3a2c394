// Accuracy of the single-edge measurement against physics: analytic slanted edges (Gaussian PSF
// of width sigma, square pixel aperture) whose true MTF is exp(-2 pi^2 sigma^2 f^2) |sinc f|,
// measured with edge location and slope fit included. Prints the error table.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <vector>

#include "SlantedEdge.h"
#include "mtf/MtfMeasurement.h"

namespace {

struct SweepCase {
  double sigma;
  double angle;
  bool darkFirst;
  bool horizontal;
};

struct SweepError {
  double cut;    // relative error of the cut frequency (MTF 0.1), percent
  double mtf50;  // relative error of MTF50, percent
};

std::vector<SweepCase> Cases() {
  std::vector<SweepCase> cases;
  for (double sigma : {0.5, 0.75, 1.0, 1.5, 2.0, 2.5}) {
    // 3 to 10 degrees both ways, clear of the critical angles near 14 and 26.6 degrees.
    for (double angle : {3.0, 5.0, 7.5, 10.0, -3.0, -5.0, -7.5, -10.0}) {
      for (bool darkFirst : {true, false}) {
        for (bool horizontal : {false, true})
          cases.push_back({sigma, angle, darkFirst, horizontal});
      }
    }
  }
  return cases;
}

// The edge images are the size of the suite's single edges: 128 x 256 pixels, contrast 0.8.
SweepError Measure(const SweepCase& c, double noiseFraction, std::uint64_t seed, double& slope) {
  datagen::SlantedEdge edge;
  edge.rows = 256;
  edge.cols = 128;
  edge.angleDegrees = c.angle;
  edge.sigma = c.sigma;
  edge.dark = 0.1;
  edge.bright = 0.9;
  edge.darkFirst = c.darkFirst;
  edge.horizontal = c.horizontal;
  edge.noise = noiseFraction * (edge.bright - edge.dark);
  edge.seed = seed;
  CMtfMeasurement measurement;
  MtfResult result;
  float fitted = 0.0f;
  EXPECT_TRUE(measurement.MeasureRegion(datagen::RenderSlantedEdge(edge), result, &fitted));
  slope = fitted;
  const double trueCut = datagen::SlantedEdgeTrueCrossing(c.sigma, 0.1);
  const double true50 = datagen::SlantedEdgeTrueCrossing(c.sigma, 0.5);
  return {100.0 * (result.cutFrequency / trueCut - 1.0),
          100.0 * (MtfCrossing(result, 0.5) / true50 - 1.0)};
}

struct Summary {
  double cutMax = 0.0;
  double cutSquares = 0.0;
  double mtf50Max = 0.0;
  double mtf50Squares = 0.0;
  int count = 0;
  void Add(const SweepError& e) {
    cutMax = std::max(cutMax, std::fabs(e.cut));
    mtf50Max = std::max(mtf50Max, std::fabs(e.mtf50));
    cutSquares += e.cut * e.cut;
    mtf50Squares += e.mtf50 * e.mtf50;
    ++count;
  }
};

// Runs the sweep, prints every case and a summary per sigma, and checks each case's errors and
// the root-mean-square errors over the sweep.
void RunSweep(double noiseFraction, double cutBound, double mtf50Bound, double cutRmsBound,
              double mtf50RmsBound) {
  const double pi = 3.141592653589793;
  std::map<double, Summary> bySigma;
  Summary all;
  std::printf("noise %.1f %% of contrast\n", 100.0 * noiseFraction);
  std::printf(" sigma  angle polarity orient   slope err    cut err %%  MTF50 err %%\n");
  std::uint64_t seed = 1000;
  for (const SweepCase& c : Cases()) {
    double slope = 0.0;
    const SweepError e = Measure(c, noiseFraction, ++seed, slope);
    const double slopeError = std::fabs(slope) - std::tan(std::fabs(c.angle) * pi / 180.0);
    std::printf(" %5.2f %6.1f %8s %6s %+11.2e %+10.2f %+11.2f\n", c.sigma, c.angle,
                c.darkFirst ? "dark-br" : "br-dark", c.horizontal ? "horiz" : "vert", slopeError,
                e.cut, e.mtf50);
    EXPECT_LE(std::fabs(e.cut), cutBound)
        << "sigma " << c.sigma << " angle " << c.angle << " dark first " << c.darkFirst
        << " horizontal " << c.horizontal;
    EXPECT_LE(std::fabs(e.mtf50), mtf50Bound)
        << "sigma " << c.sigma << " angle " << c.angle << " dark first " << c.darkFirst
        << " horizontal " << c.horizontal;
    bySigma[c.sigma].Add(e);
    all.Add(e);
  }
  std::printf(" sigma  cases  cut max %%  cut rms %%  MTF50 max %%  MTF50 rms %%\n");
  for (const auto& [sigma, s] : bySigma) {
    std::printf(" %5.2f %6d %9.2f %9.2f %11.2f %11.2f\n", sigma, s.count, s.cutMax,
                std::sqrt(s.cutSquares / s.count), s.mtf50Max, std::sqrt(s.mtf50Squares / s.count));
  }
  std::printf("   all %6d %9.2f %9.2f %11.2f %11.2f\n", all.count, all.cutMax,
              std::sqrt(all.cutSquares / all.count), all.mtf50Max,
              std::sqrt(all.mtf50Squares / all.count));
  EXPECT_LE(std::sqrt(all.cutSquares / all.count), cutRmsBound);
  EXPECT_LE(std::sqrt(all.mtf50Squares / all.count), mtf50RmsBound);
}

// With the true slope the profile and MTF steps are within 1 % over this sweep; the fitted slope
// adds at most 2.5e-5 here, so every case stays within 1 %, well inside the 2 % asked of
// slanted-edge practice.
TEST(MtfAccuracy, NoiseFreeEdgesWithinTwoPercent) { RunSweep(0.0, 2.0, 2.0, 1.0, 1.0); }

// Gaussian noise of 1 % of the contrast on a 128 x 256 edge: the fitted slopes stay within 4e-4
// of the truth (0.1 px over the region), but the noise of the profile itself moves the MTF by
// about 0.015 near the cut frequency, where the curve is flat on the sharpest edges. The
// measurement reaches 3 % at the root-mean-square level, not in every case: the worst case of
// this sweep is 4.7 % on the cut frequency and 3.5 % on MTF50 (sigma 0.5, cut frequency beyond
// Nyquist), and other noise draws reach about 6.3 % and 2.9 %. The per-case bounds below are what
// the measurement achieves, not the 3 % aimed at.
TEST(MtfAccuracy, NoisyEdgesWithinWhatTheMeasurementAchieves) {
  RunSweep(0.01, 6.5, 4.0, 1.5, 0.8);
}

}  // namespace
