// Sources of the median and cosmic-ray filter references. The three images are committed (the
// median references made from MedianSrc.tif come from ImageJ), so this set is not part of the
// build's generated data; a ctest test checks that it still reproduces the committed bytes.
//
//   MedianSrc.tif        640x512 16-bit sensor-like frame: smooth structure, sharp features,
//                        signal-dependent Gaussian noise, a few hundred bright outliers.
//   CosmicRay10-100.tif  512x512 clean frame: smooth scene plus Gaussian noise (sigma 12,
//                        clipped to +-4 sigma), the physical truth behind CosmicRay.tif.
//   CosmicRay.tif        the clean frame plus simulated cosmic-ray hits (single pixels, 2-6
//                        pixel clusters, short tracks) of +300..+30000 grey levels each.
//   FilterSources.txt    the model parameters and the list of hits.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "DataSet.h"
#include "Random.h"

namespace datagen {
namespace {

struct Blob {
  double x, y, sigmaX, sigmaY, amplitude;
};

double BlobSum(const std::vector<Blob>& blobs, double x, double y) {
  double value = 0.0;
  for (const Blob& b : blobs) {
    const double u = (x - b.x) / b.sigmaX;
    const double v = (y - b.y) / b.sigmaY;
    value += b.amplitude * std::exp(-0.5 * (u * u + v * v));
  }
  return value;
}

// The blobs as the record lists them: " (x, y, sigma x, sigma y, amplitude)" each.
void RecordBlobs(std::ostringstream& record, const std::vector<Blob>& blobs) {
  for (const Blob& b : blobs) {
    record << " (" << b.x << ", " << b.y << ", " << b.sigmaX << ", " << b.sigmaY << ", "
           << b.amplitude << ")";
  }
}

std::uint16_t ClipToU16(double value) {
  return static_cast<std::uint16_t>(std::clamp(std::lround(value), 0L, 65535L));
}

// Log-uniform amplitude in [lo, hi]: many faint hits, a few very bright ones.
double LogUniform(Random& rng, double lo, double hi) {
  return std::exp(rng.Uniform(std::log(lo), std::log(hi)));
}

cv::Mat MakeMedianSource(std::ostringstream& record) {
  constexpr int kCols = 640;
  constexpr int kRows = 512;
  constexpr double kReadNoise = 12.0;  // grey levels
  constexpr double kGain = 2.0;        // grey levels per electron: shot-noise variance = v / 2
  constexpr int kOutliers = 300;
  Random rng(20240611);

  const std::vector<Blob> blobs = {{160.0, 140.0, 60.0, 45.0, 9000.0},
                                   {470.0, 330.0, 40.0, 70.0, 42000.0},
                                   {300.0, 420.0, 90.0, 30.0, 6000.0},
                                   {540.0, 90.0, 25.0, 25.0, 15000.0}};
  cv::Mat image(kRows, kCols, CV_16UC1);
  for (int y = 0; y < kRows; ++y) {
    auto* row = image.ptr<std::uint16_t>(y);
    for (int x = 0; x < kCols; ++x) {
      // Background with a gentle gradient and a slow ripple.
      double v = 1500.0 + 1.2 * x + 0.8 * y +
                 300.0 * std::sin(2.0 * CV_PI * x / 173.0) * std::cos(2.0 * CV_PI * y / 131.0);
      v += BlobSum(blobs, x, y);
      // Sharp features: a bright bar with step edges, a dark square, a thin bright line and a
      // disc with a hard rim.
      if (x >= 60 && x < 200 && y >= 300 && y < 330) v += 12000.0;
      if (x >= 250 && x < 290 && y >= 60 && y < 100) v -= 1200.0;
      if (std::abs(y - (x / 3 + 200)) == 0 && x > 320 && x < 620) v += 5000.0;
      const double dx = x - 380.0;
      const double dy = y - 170.0;
      if (dx * dx + dy * dy <= 35.0 * 35.0) v += 25000.0;
      const double sigma = std::sqrt(kReadNoise * kReadNoise + std::max(v, 0.0) / kGain);
      row[x] = ClipToU16(v + sigma * rng.Normal());
    }
  }
  record << "MedianSrc.tif: " << kCols << "x" << kRows
         << " 16-bit; background 1500 + 1.2 x + 0.8 y + 300 sin(2 pi x / 173) cos(2 pi y / 131)"
            "; Gaussian blobs (x, y, sigma x, sigma y, amplitude):";
  RecordBlobs(record, blobs);
  record << "; bar x 60..199 y 300..329 +12000; square x 250..289 y 60..99 -1200; line y = x/3 + "
            "200 for 320 < x < 620 +5000; disc centre (380, 170) radius 35 +25000; noise sigma "
            "= sqrt(12^2 + v / 2); "
         << kOutliers << " bright outliers, log-uniform +150..+20000, clipped to 65535 (seed "
         << 20240611 << ")\n";

  for (int i = 0; i < kOutliers; ++i) {
    const int x = rng.Int(0, kCols - 1);
    const int y = rng.Int(0, kRows - 1);
    const double amplitude = LogUniform(rng, 150.0, 20000.0);
    auto& pixel = image.at<std::uint16_t>(y, x);
    pixel = ClipToU16(pixel + amplitude);
  }
  return image;
}

struct Hit {
  int x, y;
  double amplitude;
};

void MakeCosmicRayFrames(cv::Mat& clean, cv::Mat& hit, std::ostringstream& record) {
  constexpr int kSize = 512;
  constexpr double kSigma = 12.0;
  constexpr int kEvents = 220;
  constexpr std::uint64_t kSeed = 19120807;
  Random rng(kSeed);

  // Wide blobs only: the scene's curvature over a radius-10 disc stays far below the threshold.
  const std::vector<Blob> blobs = {{150.0, 180.0, 110.0, 90.0, 6000.0},
                                   {380.0, 330.0, 90.0, 120.0, 9000.0},
                                   {260.0, 60.0, 140.0, 80.0, -1500.0}};
  clean.create(kSize, kSize, CV_16UC1);
  for (int y = 0; y < kSize; ++y) {
    auto* row = clean.ptr<std::uint16_t>(y);
    for (int x = 0; x < kSize; ++x) {
      const double scene = 3000.0 + 2.0 * x - 1.5 * y + BlobSum(blobs, x, y);
      const double noise = std::clamp(kSigma * rng.Normal(), -4.0 * kSigma, 4.0 * kSigma);
      row[x] = ClipToU16(scene + noise);
    }
  }
  record << "CosmicRay10-100.tif: " << kSize << "x" << kSize
         << " 16-bit clean frame; scene 3000 + 2 x - 1.5 y + Gaussian blobs (x, y, sigma x, "
            "sigma y, amplitude):";
  RecordBlobs(record, blobs);
  record << "; noise sigma " << kSigma << " clipped to +-4 sigma (seed " << kSeed << ")\n";

  // Hits: 50% single pixels, 30% clusters of 2..6 touching pixels, 20% tracks of 3..8 pixels.
  std::vector<std::vector<Hit>> events;
  for (int e = 0; e < kEvents; ++e) {
    const double kind = rng.Uniform();
    const int x0 = rng.Int(0, kSize - 1);
    const int y0 = rng.Int(0, kSize - 1);
    std::vector<Hit> pixels;
    if (kind < 0.5) {
      pixels.push_back({x0, y0, LogUniform(rng, 300.0, 30000.0)});
    } else if (kind < 0.8) {
      const int count = rng.Int(2, 6);
      int x = x0;
      int y = y0;
      pixels.push_back({x, y, LogUniform(rng, 300.0, 30000.0)});
      while (static_cast<int>(pixels.size()) < count) {
        // Grow from a random member of the cluster towards one of its eight neighbours.
        const Hit& from =
            pixels[static_cast<std::size_t>(rng.Int(0, static_cast<int>(pixels.size()) - 1))];
        x = from.x + rng.Int(-1, 1);
        y = from.y + rng.Int(-1, 1);
        const bool taken = std::any_of(pixels.begin(), pixels.end(),
                                       [&](const Hit& h) { return h.x == x && h.y == y; });
        if (!taken) pixels.push_back({x, y, LogUniform(rng, 300.0, 30000.0)});
      }
    } else {
      const int length = rng.Int(3, 8);
      const double angle = rng.Uniform(0.0, CV_PI);
      const double amplitude = LogUniform(rng, 300.0, 30000.0);
      for (int i = 0; i < length; ++i) {
        const int x = x0 + static_cast<int>(std::lround(i * std::cos(angle)));
        const int y = y0 + static_cast<int>(std::lround(i * std::sin(angle)));
        const bool taken = std::any_of(pixels.begin(), pixels.end(),
                                       [&](const Hit& h) { return h.x == x && h.y == y; });
        if (!taken) pixels.push_back({x, y, std::max(300.0, amplitude * rng.Uniform(0.6, 1.0))});
      }
    }
    events.push_back(pixels);
  }

  hit = clean.clone();
  record << "CosmicRay.tif: the clean frame plus " << kEvents
         << " events (x y added-grey-levels per pixel; pixels outside the frame dropped):\n";
  for (std::size_t e = 0; e < events.size(); ++e) {
    record << "event " << e << ":";
    for (const Hit& h : events[e]) {
      if (h.x < 0 || h.y < 0 || h.x >= kSize || h.y >= kSize) continue;
      auto& pixel = hit.at<std::uint16_t>(h.y, h.x);
      pixel = ClipToU16(pixel + h.amplitude);
      record << " " << h.x << " " << h.y << " " << std::lround(h.amplitude);
    }
    record << "\n";
  }
}

void FilterSources(Output& out) {
  std::ostringstream record;
  record << "FilterSources: sources of the median and cosmic-ray filter references.\n";
  const cv::Mat medianSource = MakeMedianSource(record);
  cv::Mat clean;
  cv::Mat hit;
  MakeCosmicRayFrames(clean, hit, record);
  out.WriteTiff("MedianSrc.tif", medianSource);
  out.WriteTiff("CosmicRay10-100.tif", clean);
  out.WriteTiff("CosmicRay.tif", hit);
  out.WriteText("FilterSources.txt", record.str());
}

}  // namespace

OMBRIX_DATA_SET("FilterSources", FilterSources);

}  // namespace datagen
