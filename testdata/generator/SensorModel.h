// Physical model of the instrument's 16-bit camera for generated frames: per-pixel bias and dark
// current (with hot pixels and a temperature law), read and shot noise, cosmic-ray hits, and the
// median-combined master dark frames. Signals are in ADU as doubles until Quantize.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "Random.h"

namespace datagen {

struct SensorParameters {
  int rows = 512;
  int cols = 512;
  double bias = 1000.0;          // ADU, mean offset
  double biasPixelSigma = 4.0;   // ADU, fixed-pattern offset of each pixel
  double biasColumnSigma = 2.0;  // ADU, fixed-pattern offset of each column
  double darkRate = 0.5;         // ADU/s at the reference temperature, median pixel
  double darkRateSpread = 0.3;   // log-normal spread of the per-pixel dark rate
  double hotPixelFraction = 0.0015;
  double hotRateMin = 20.0;   // ADU/s, hot pixels
  double hotRateMax = 300.0;  // ADU/s
  double readNoise = 5.0;     // ADU rms per read
  double gain = 2.0;          // electrons per ADU (shot noise variance = signal / gain in ADU^2)
  double referenceTemperature = 20.0;  // degC at which darkRate holds
  double doublingTemperature = 6.0;    // dark current doubles every this many degC
  int masterDarkFrames = 16;           // frames median-combined into a master dark

  std::string Describe() const {
    std::ostringstream s;
    s << "sensor " << cols << "x" << rows << " 16-bit, gain " << gain << " e-/ADU\n"
      << "bias " << bias << " ADU, pixel fixed pattern " << biasPixelSigma << " ADU rms, column "
      << biasColumnSigma << " ADU rms\n"
      << "dark rate " << darkRate << " ADU/s median at " << referenceTemperature
      << " degC (log-normal spread " << darkRateSpread << "), doubling every "
      << doublingTemperature << " degC\n"
      << "hot pixels " << hotPixelFraction << " of the area, " << hotRateMin << " to " << hotRateMax
      << " ADU/s\n"
      << "read noise " << readNoise << " ADU rms; shot noise variance signal/gain\n"
      << "master darks: median of " << masterDarkFrames
      << " frames (cosmic-free, noise reduced by sqrt(N) x 1.25)\n";
    return s.str();
  }
};

// A cosmic-ray hit as deposited: a short segment (length 0 for a point hit) with a peak charge
// per pixel along it and a Gaussian lateral spread.
struct CosmicRayHit {
  double x0, y0, x1, y1;
  double peak;   // ADU
  double sigma;  // px, lateral spread of the charge cloud
};

struct CosmicRayModel {
  int minHits = 10;  // per 150 s frame of 512x512
  int maxHits = 18;
  double trackFraction = 0.5;   // oblique muon tracks; the rest are point-like hits
  double minTrackLength = 8.0;  // px
  double maxTrackLength = 40.0;
  double minPeak = 300.0;  // ADU per pixel on the track axis
  double maxPeak = 3000.0;
  double sigma = 0.55;  // px

  std::string Describe() const {
    std::ostringstream s;
    s << "cosmic rays: " << minHits << " to " << maxHits << " hits per frame, " << trackFraction
      << " of them tracks " << minTrackLength << " to " << maxTrackLength << " px long, peak "
      << minPeak << " to " << maxPeak << " ADU, lateral sigma " << sigma << " px\n";
    return s.str();
  }
};

class Sensor {
 public:
  Sensor(const SensorParameters& p, std::uint64_t seed) : p_(p) {
    Random rng(seed);
    bias_.create(p.rows, p.cols, CV_64F);
    rate_.create(p.rows, p.cols, CV_64F);
    std::vector<double> column(static_cast<size_t>(p.cols));
    for (double& c : column) c = p.biasColumnSigma * rng.Normal();
    for (int y = 0; y < p.rows; ++y) {
      double* b = bias_.ptr<double>(y);
      double* r = rate_.ptr<double>(y);
      for (int x = 0; x < p.cols; ++x) {
        b[x] = p.bias + column[static_cast<size_t>(x)] + p.biasPixelSigma * rng.Normal();
        r[x] = p.darkRate * std::exp(p.darkRateSpread * rng.Normal());
      }
    }
    const int hot = static_cast<int>(p.hotPixelFraction * p.rows * p.cols);
    for (int i = 0; i < hot; ++i) {
      const int x = rng.Int(0, p.cols - 1);
      const int y = rng.Int(0, p.rows - 1);
      rate_.at<double>(y, x) = rng.Uniform(p.hotRateMin, p.hotRateMax);
      hotPixels_.emplace_back(x, y);
    }
  }

  const SensorParameters& Parameters() const { return p_; }
  const std::vector<cv::Point>& HotPixels() const { return hotPixels_; }

  double TemperatureScale(double temperature) const {
    return std::exp2((temperature - p_.referenceTemperature) / p_.doublingTemperature);
  }

  // Expected dark level (bias plus dark current) in ADU for an exposure at a temperature.
  cv::Mat ExpectedDark(double exposure, double temperature) const {
    cv::Mat dark(p_.rows, p_.cols, CV_64F);
    const double k = exposure * TemperatureScale(temperature);
    for (int y = 0; y < p_.rows; ++y) {
      const double* b = bias_.ptr<double>(y);
      const double* r = rate_.ptr<double>(y);
      double* d = dark.ptr<double>(y);
      for (int x = 0; x < p_.cols; ++x) d[x] = b[x] + r[x] * k;
    }
    return dark;
  }

  // One exposure before quantization: dark level plus the photo signal (ADU, CV_64F, may be
  // empty), with read noise and shot noise of dark and photo charge.
  cv::Mat Expose(double exposure, double temperature, const cv::Mat& photo, Random& rng) const {
    cv::Mat frame = ExpectedDark(exposure, temperature);
    for (int y = 0; y < p_.rows; ++y) {
      double* f = frame.ptr<double>(y);
      const double* b = bias_.ptr<double>(y);
      const double* s = photo.empty() ? nullptr : photo.ptr<double>(y);
      for (int x = 0; x < p_.cols; ++x) {
        const double charge = f[x] - b[x] + (s ? s[x] : 0.0);
        const double sigma = std::sqrt(p_.readNoise * p_.readNoise + charge / p_.gain);
        f[x] += (s ? s[x] : 0.0) + sigma * rng.Normal();
      }
    }
    return frame;
  }

  // Master dark: the median of masterDarkFrames dark exposures, modelled by its statistics (the
  // median removes cosmic rays and leaves 1.25 x the noise of the mean).
  cv::Mat MasterDark(double exposure, double temperature, Random& rng) const {
    cv::Mat frame = ExpectedDark(exposure, temperature);
    const double reduce = 1.25 / std::sqrt(static_cast<double>(p_.masterDarkFrames));
    for (int y = 0; y < p_.rows; ++y) {
      double* f = frame.ptr<double>(y);
      const double* b = bias_.ptr<double>(y);
      for (int x = 0; x < p_.cols; ++x) {
        const double charge = f[x] - b[x];
        const double sigma = std::sqrt(p_.readNoise * p_.readNoise + charge / p_.gain);
        f[x] += reduce * sigma * rng.Normal();
      }
    }
    return Quantize(frame);
  }

  // 16-bit unsigned sample values, rounded, clipped at 0 and 65535 (the ADC's range).
  static cv::Mat Quantize(const cv::Mat& frame) {
    cv::Mat out(frame.rows, frame.cols, CV_16U);
    for (int y = 0; y < frame.rows; ++y) {
      const double* f = frame.ptr<double>(y);
      std::uint16_t* o = out.ptr<std::uint16_t>(y);
      for (int x = 0; x < frame.cols; ++x) o[x] = cv::saturate_cast<std::uint16_t>(f[x]);
    }
    return out;
  }

 private:
  SensorParameters p_;
  cv::Mat bias_;
  cv::Mat rate_;
  std::vector<cv::Point> hotPixels_;
};

// Draws the hits of one frame.
inline std::vector<CosmicRayHit> DrawCosmicRays(const CosmicRayModel& m, int rows, int cols,
                                                Random& rng) {
  std::vector<CosmicRayHit> hits;
  const int n = rng.Int(m.minHits, m.maxHits);
  for (int i = 0; i < n; ++i) {
    CosmicRayHit h{};
    h.x0 = rng.Uniform(0.0, cols - 1.0);
    h.y0 = rng.Uniform(0.0, rows - 1.0);
    h.peak = rng.Uniform(m.minPeak, m.maxPeak);
    h.sigma = m.sigma;
    if (rng.Uniform() < m.trackFraction) {
      const double length = rng.Uniform(m.minTrackLength, m.maxTrackLength);
      const double angle = rng.Uniform(0.0, 2.0 * CV_PI);
      h.x1 = h.x0 + length * std::cos(angle);
      h.y1 = h.y0 + length * std::sin(angle);
    } else {
      h.x1 = h.x0;
      h.y1 = h.y0;
    }
    hits.push_back(h);
  }
  return hits;
}

// Adds the charge of the hits (ADU) to a CV_64F frame: the peak times a Gaussian of the distance
// to the segment.
inline void DepositCosmicRays(cv::Mat& frame, const std::vector<CosmicRayHit>& hits) {
  for (const CosmicRayHit& h : hits) {
    const double reach = 4.0 * h.sigma;
    const int x0 = std::max(0, static_cast<int>(std::floor(std::min(h.x0, h.x1) - reach)));
    const int x1 =
        std::min(frame.cols - 1, static_cast<int>(std::ceil(std::max(h.x0, h.x1) + reach)));
    const int y0 = std::max(0, static_cast<int>(std::floor(std::min(h.y0, h.y1) - reach)));
    const int y1 =
        std::min(frame.rows - 1, static_cast<int>(std::ceil(std::max(h.y0, h.y1) + reach)));
    const double dx = h.x1 - h.x0;
    const double dy = h.y1 - h.y0;
    const double len2 = dx * dx + dy * dy;
    for (int y = y0; y <= y1; ++y) {
      double* f = frame.ptr<double>(y);
      for (int x = x0; x <= x1; ++x) {
        double t = 0.0;
        if (len2 > 0.0) t = std::clamp(((x - h.x0) * dx + (y - h.y0) * dy) / len2, 0.0, 1.0);
        const double ex = x - (h.x0 + t * dx);
        const double ey = y - (h.y0 + t * dy);
        const double d2 = ex * ex + ey * ey;
        if (d2 <= reach * reach) f[x] += h.peak * std::exp(-d2 / (2.0 * h.sigma * h.sigma));
      }
    }
  }
}

}  // namespace datagen
