// "Power.tif": a fluorescence-like frame for the Gaussian power process and the wavelet
// structure tests. It is committed (testdata/committed/) rather than generated at build time;
// a ctest test checks that this set still reproduces the committed bytes.
//
//   Power.tif        512x512 16-bit: background 300 + 0.3 x + 0.2 y + 12 sin(2 pi x / 233)
//                    cos(2 pi y / 181); 24 random Gaussian spots (widths 0.8..4.5 px, peaks
//                    log-uniform 150..2500); two probe spots; noise sigma sqrt(3^2 + v / 4);
//                    clipped to 0..32767 (the wavelet works in signed 16-bit). The field is
//                    sparse on purpose: the structure test's noise levels are measured on whole
//                    planes, and crowded spots would raise them above the noise.
//   PowerImage.txt   the model, the probe amplitudes and the list of spots.
#include "PowerImage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>
#include <vector>

#include "DataSet.h"
#include "Random.h"

namespace datagen {

// Found by testdata/tools/CalibratePowerImage.cpp: with these peaks the structure image of the
// wavelet test holds 50 at (row 162, column 90) and 24 at (row 55, column 126).
const PowerImageProbes kPowerImageProbes = {235.25, 108.75};

namespace {

constexpr int kRows = 512;
constexpr int kCols = 512;
constexpr std::uint64_t kSpotSeed = 20260521;
constexpr std::uint64_t kNoiseSeed = 20260522;
constexpr int kRandomSpots = 24;
constexpr double kReadNoise = 3.0;  // grey levels
constexpr double kGain = 4.0;       // grey levels per electron: shot-noise variance = v / 4
// Random spots keep this far (in pixels) from the probes, so that each probe's neighbourhood
// is its own.
constexpr double kProbeClearance = 24.0;

struct Spot {
  double x, y, width, amplitude;
};

const Spot kFirstProbe = {90.0, 162.0, 1.6, 0.0};
const Spot kSecondProbe = {126.0, 55.0, 2.4, 0.0};

double Background(double x, double y) {
  return 300.0 + 0.3 * x + 0.2 * y +
         12.0 * std::sin(2.0 * CV_PI * x / 233.0) * std::cos(2.0 * CV_PI * y / 181.0);
}

std::vector<Spot> RandomSpots() {
  Random rng(kSpotSeed);
  const double widths[] = {0.8, 1.2, 1.8, 2.8, 4.5};
  std::vector<Spot> spots;
  while (static_cast<int>(spots.size()) < kRandomSpots) {
    Spot s;
    s.x = rng.Uniform(4.0, kCols - 4.0);
    s.y = rng.Uniform(4.0, kRows - 4.0);
    s.width = widths[rng.Int(0, 4)];
    s.amplitude = std::exp(rng.Uniform(std::log(150.0), std::log(2500.0)));
    const bool nearProbe = std::hypot(s.x - kFirstProbe.x, s.y - kFirstProbe.y) < kProbeClearance ||
                           std::hypot(s.x - kSecondProbe.x, s.y - kSecondProbe.y) < kProbeClearance;
    if (!nearProbe) spots.push_back(s);
  }
  return spots;
}

}  // namespace

cv::Mat RenderPowerImage(const PowerImageProbes& probes, std::string* record) {
  std::vector<Spot> spots = RandomSpots();
  Spot first = kFirstProbe;
  first.amplitude = probes.first;
  Spot second = kSecondProbe;
  second.amplitude = probes.second;
  spots.push_back(first);
  spots.push_back(second);

  // The noise stream is separate from the spots', so a change of the probe amplitudes changes
  // nothing but the probes.
  Random noise(kNoiseSeed);
  cv::Mat image(kRows, kCols, CV_16UC1);
  for (int y = 0; y < kRows; ++y) {
    auto* row = image.ptr<std::uint16_t>(y);
    for (int x = 0; x < kCols; ++x) {
      double v = Background(x, y);
      for (const Spot& s : spots) {
        const double dx = x - s.x;
        const double dy = y - s.y;
        v += s.amplitude * std::exp(-0.5 * (dx * dx + dy * dy) / (s.width * s.width));
      }
      const double sigma = std::sqrt(kReadNoise * kReadNoise + std::max(v, 0.0) / kGain);
      const long value = std::lround(v + sigma * noise.Normal());
      row[x] = static_cast<std::uint16_t>(std::clamp(value, 0L, 32767L));
    }
  }

  if (record != nullptr) {
    std::ostringstream text;
    text << "PowerImage: Power.tif, " << kCols << "x" << kRows
         << " 16-bit single channel, values clipped to 0..32767.\n"
            "background 300 + 0.3 x + 0.2 y + 12 sin(2 pi x / 233) cos(2 pi y / 181)\n"
            "spots A exp(-((x - x0)^2 + (y - y0)^2) / (2 w^2)); "
         << kRandomSpots << " random (seed " << kSpotSeed
         << ", widths 0.8 1.2 1.8 2.8 4.5, peaks log-uniform 150..2500, at least "
         << kProbeClearance << " px from the probes)\n"
         << "noise sigma sqrt(" << kReadNoise << "^2 + v / " << kGain << "), Normal() of seed "
         << kNoiseSeed << " drawn row by row\n"
         << "probe 1: x " << first.x << " y " << first.y << " w " << first.width << " A "
         << first.amplitude << "\n"
         << "probe 2: x " << second.x << " y " << second.y << " w " << second.width << " A "
         << second.amplitude << "\n"
         << "spots (x y w A), the probes last:\n";
    text.precision(17);
    for (const Spot& s : spots) {
      text << s.x << " " << s.y << " " << s.width << " " << s.amplitude << "\n";
    }
    *record += text.str();
  }
  return image;
}

namespace {

void PowerImage(Output& out) {
  std::string record;
  const cv::Mat image = RenderPowerImage(kPowerImageProbes, &record);
  out.WriteTiff("Power.tif", image);
  out.WriteText("PowerImage.txt", record);
}

}  // namespace

OMBRIX_DATA_SET("PowerImage", PowerImage);

}  // namespace datagen
