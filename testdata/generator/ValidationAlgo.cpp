// Data set "ValidationAlgo": the detection algorithm's validation folder "ValidationAlgo1". One
// camera (SensorModel.h) takes its master darks and four 150 s scenes: an empty flat field, faint
// spots, a spot field with 117 spots among distractors, and the distractors alone. Every scene
// records its truth: the spots with their true peak above the background, and the distractors.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "DataSet.h"
#include "Random.h"
#include "SensorModel.h"

namespace datagen {
namespace {

constexpr double kTemperature = 20.0;
constexpr double kExposure = 150.0;

// A star-like spot: a Gaussian PSF integrated over each pixel, pixel (x, y) covering
// [x - 0.5, x + 0.5] x [y - 0.5, y + 0.5]. peak is the value of the brightest pixel, which is the
// one holding the centre.
struct Spot {
  double x, y, sigma, peak;

  static double Cdf(double t) { return 0.5 * std::erfc(-t / std::sqrt(2.0)); }
  double FractionX(int px) const {
    return Cdf((px + 0.5 - x) / sigma) - Cdf((px - 0.5 - x) / sigma);
  }
  double FractionY(int py) const {
    return Cdf((py + 0.5 - y) / sigma) - Cdf((py - 0.5 - y) / sigma);
  }
  double Flux() const {
    const int cx = static_cast<int>(std::lround(x));
    const int cy = static_cast<int>(std::lround(y));
    return peak / (FractionX(cx) * FractionY(cy));
  }
  void Render(cv::Mat& photo) const {
    const double flux = Flux();
    const int reach = static_cast<int>(std::ceil(6.0 * sigma));
    const int cx = static_cast<int>(std::lround(x));
    const int cy = static_cast<int>(std::lround(y));
    for (int py = std::max(0, cy - reach); py <= std::min(photo.rows - 1, cy + reach); ++py) {
      for (int px = std::max(0, cx - reach); px <= std::min(photo.cols - 1, cx + reach); ++px) {
        photo.at<double>(py, px) += flux * FractionX(px) * FractionY(py);
      }
    }
  }
};

// A round stain of scattered light: flat top, soft logistic edge.
struct Blotch {
  double x, y, radius, edge, amplitude;
  void Render(cv::Mat& photo) const {
    for (int py = 0; py < photo.rows; ++py) {
      for (int px = 0; px < photo.cols; ++px) {
        const double r = std::hypot(px - x, py - y);
        photo.at<double>(py, px) += amplitude / (1.0 + std::exp((r - radius) / edge));
      }
    }
  }
};

double DistanceToSegment(double px, double py, double x0, double y0, double x1, double y1) {
  const double dx = x1 - x0;
  const double dy = y1 - y0;
  const double len2 = dx * dx + dy * dy;
  double t = 0.0;
  if (len2 > 0.0) t = std::clamp(((px - x0) * dx + (py - y0) * dy) / len2, 0.0, 1.0);
  return std::hypot(px - (x0 + t * dx), py - (y0 + t * dy));
}

// A bright straight scratch: Gaussian cross-section around a segment.
struct Scratch {
  double x0, y0, x1, y1, sigma, amplitude;
  void Render(cv::Mat& photo) const {
    for (int py = 0; py < photo.rows; ++py) {
      for (int px = 0; px < photo.cols; ++px) {
        const double d = DistanceToSegment(px, py, x0, y0, x1, y1);
        if (d < 6.0 * sigma) {
          photo.at<double>(py, px) += amplitude * std::exp(-0.5 * d * d / (sigma * sigma));
        }
      }
    }
  }
};

// A pixel that turned hot after the master darks were taken, so dark subtraction leaves its
// whole excess charge.
struct NewHotPixel {
  int x, y;
  double excess;
};

struct Scene {
  double sky = 0.0;  // uniform illumination, ADU in 150 s
  std::vector<Spot> spots;
  std::vector<Blotch> blotches;
  std::vector<Scratch> scratches;
  std::vector<NewHotPixel> hotPixels;
  std::vector<CosmicRayHit> cosmicRays;
};

// The layout grid: 12 x 12 cells inside a 24 px frame, so spots stay far from the border and
// about 38 px from each other.
struct Grid {
  static constexpr int kCells = 12;
  static constexpr double kOrigin = 24.0;
  static constexpr double kCell = (512.0 - 2.0 * kOrigin) / kCells;
  static double Centre(int index) { return kOrigin + (index + 0.5) * kCell; }
};

// Cosmic-ray hits drawn from the camera's model, kept at least `clearance` px away from every
// object of the scene so that they never land on one.
std::vector<CosmicRayHit> DrawClearCosmicRays(const CosmicRayModel& m, const Scene& scene, int rows,
                                              int cols, double clearance, Random& rng) {
  std::vector<CosmicRayHit> hits;
  const int wanted = rng.Int(m.minHits, m.maxHits);
  while (static_cast<int>(hits.size()) < wanted) {
    CosmicRayHit h{};
    h.x0 = rng.Uniform(8.0, cols - 9.0);
    h.y0 = rng.Uniform(8.0, rows - 9.0);
    h.peak = rng.Uniform(m.minPeak, m.maxPeak);
    h.sigma = m.sigma;
    h.x1 = h.x0;
    h.y1 = h.y0;
    if (rng.Uniform() < m.trackFraction) {
      const double length = rng.Uniform(m.minTrackLength, m.maxTrackLength);
      const double angle = rng.Uniform(0.0, 2.0 * CV_PI);
      h.x1 = std::clamp(h.x0 + length * std::cos(angle), 8.0, cols - 9.0);
      h.y1 = std::clamp(h.y0 + length * std::sin(angle), 8.0, rows - 9.0);
    }
    bool clear = true;
    for (const Spot& s : scene.spots) {
      clear = clear && DistanceToSegment(s.x, s.y, h.x0, h.y0, h.x1, h.y1) > clearance;
    }
    for (const Blotch& b : scene.blotches) {
      clear = clear && DistanceToSegment(b.x, b.y, h.x0, h.y0, h.x1, h.y1) > b.radius + clearance;
    }
    for (const Scratch& s : scene.scratches) {
      for (const double t : {0.0, 0.25, 0.5, 0.75, 1.0}) {
        const double px = s.x0 + t * (s.x1 - s.x0);
        const double py = s.y0 + t * (s.y1 - s.y0);
        clear = clear && DistanceToSegment(px, py, h.x0, h.y0, h.x1, h.y1) > clearance;
      }
    }
    for (const CosmicRayHit& o : hits) {
      clear = clear && DistanceToSegment(o.x0, o.y0, h.x0, h.y0, h.x1, h.y1) > clearance &&
              DistanceToSegment(o.x1, o.y1, h.x0, h.y0, h.x1, h.y1) > clearance;
    }
    if (clear) hits.push_back(h);
  }
  return hits;
}

std::string Format(const char* format, double a, double b, double c, double d, double e = 0.0,
                   double f = 0.0) {
  char line[160];
  std::snprintf(line, sizeof(line), format, a, b, c, d, e, f);
  return line;
}

// Renders, exposes and writes one scene and its truth.
void WriteScene(Output& out, const Sensor& sensor, const Scene& scene, const std::string& name,
                const std::string& description, Random& rng) {
  const SensorParameters& p = sensor.Parameters();
  cv::Mat photo(p.rows, p.cols, CV_64F, cv::Scalar(scene.sky));
  for (const Spot& s : scene.spots) s.Render(photo);
  for (const Blotch& b : scene.blotches) b.Render(photo);
  for (const Scratch& s : scene.scratches) s.Render(photo);
  for (const NewHotPixel& h : scene.hotPixels) photo.at<double>(h.y, h.x) += h.excess;
  cv::Mat frame = sensor.Expose(kExposure, kTemperature, photo, rng);
  DepositCosmicRays(frame, scene.cosmicRays);
  out.WriteTiff("ValidationAlgo1/" + name + ".tif", Sensor::Quantize(frame));

  std::ostringstream truth;
  truth << "# " << name << ".tif: " << description << "\n"
        << "# 150 s at " << kTemperature << " degC, uniform sky " << scene.sky
        << " ADU; coordinates are pixel indices (pixel centres), peaks in ADU above the sky\n"
        << "# spot x y sigma flux peak\n"
        << "# blotch x y radius edge amplitude | scratch x0 y0 x1 y1 sigma amplitude\n"
        << "# hot x y excess | cosmic x0 y0 x1 y1 peak sigma\n";
  int bright = 0;
  for (const Spot& s : scene.spots) {
    truth << "spot" << Format(" %.3f %.3f %.3f %.1f %.1f\n", s.x, s.y, s.sigma, s.Flux(), s.peak);
    bright += s.peak > 800.0 ? 1 : 0;
  }
  for (const Blotch& b : scene.blotches) {
    truth << "blotch"
          << Format(" %.3f %.3f %.2f %.2f %.1f\n", b.x, b.y, b.radius, b.edge, b.amplitude);
  }
  for (const Scratch& s : scene.scratches) {
    truth << "scratch"
          << Format(" %.3f %.3f %.3f %.3f %.2f %.1f\n", s.x0, s.y0, s.x1, s.y1, s.sigma,
                    s.amplitude);
  }
  for (const NewHotPixel& h : scene.hotPixels) {
    truth << "hot" << Format(" %.0f %.0f %.1f\n", h.x, h.y, h.excess, 0.0);
  }
  for (const CosmicRayHit& h : scene.cosmicRays) {
    truth << "cosmic"
          << Format(" %.3f %.3f %.3f %.3f %.1f %.2f\n", h.x0, h.y0, h.x1, h.y1, h.peak, h.sigma);
  }
  truth << "# " << scene.spots.size() << " spots, " << bright << " of them peaking above 800 ADU\n";
  out.WriteText("ValidationAlgo1/Truth_" + name + ".txt", truth.str());
}

// Spots of the given peak range in the listed grid cells, jittered within their cell.
void PlaceSpots(Scene& scene, const std::vector<int>& cells, double minPeak, double maxPeak,
                Random& rng) {
  for (const int cell : cells) {
    Spot s{};
    s.x = Grid::Centre(cell % Grid::kCells) + rng.Uniform(-4.0, 4.0);
    s.y = Grid::Centre(cell / Grid::kCells) + rng.Uniform(-4.0, 4.0);
    s.sigma = rng.Uniform(1.3, 1.8);
    s.peak = rng.Uniform(minPeak, maxPeak);
    scene.spots.push_back(s);
  }
}

void PlaceHotPixels(Scene& scene, const std::vector<int>& cells, Random& rng) {
  for (const int cell : cells) {
    NewHotPixel h{};
    h.x = static_cast<int>(Grid::Centre(cell % Grid::kCells)) + rng.Int(-4, 4);
    h.y = static_cast<int>(Grid::Centre(cell / Grid::kCells)) + rng.Int(-4, 4);
    h.excess = rng.Uniform(500.0, 20000.0);
    scene.hotPixels.push_back(h);
  }
}

void GenerateValidationAlgo(Output& out) {
  const SensorParameters params;
  const CosmicRayModel cosmics;
  const Sensor sensor(params, 7301);
  Random rng(7311);

  out.WriteTiff("ValidationAlgo1/Black_1s.tif", sensor.MasterDark(1.0, kTemperature, rng));
  out.WriteTiff("ValidationAlgo1/Black_150s.tif", sensor.MasterDark(kExposure, kTemperature, rng));

  // Distractors shared by the spot field and the negative control: a stain over four cells, a
  // scratch along three, both well inside the frame.
  const Blotch blotch{Grid::Centre(8) + 0.5 * Grid::kCell, Grid::Centre(2) + 0.5 * Grid::kCell,
                      20.0, 2.0, 1000.0};
  const double sx = Grid::Centre(3);
  const double sy = Grid::Centre(9);
  const Scratch scratch{sx - 21.0, sy - 6.0, sx + 21.0, sy + 6.0, 2.5, 900.0};
  std::vector<int> reserved;
  for (const int row : {2, 3}) {
    for (const int col : {8, 9}) reserved.push_back(row * Grid::kCells + col);
  }
  for (const int col : {2, 3, 4}) reserved.push_back(9 * Grid::kCells + col);
  std::vector<int> free;
  for (int cell = 0; cell < Grid::kCells * Grid::kCells; ++cell) {
    if (std::find(reserved.begin(), reserved.end(), cell) == reserved.end()) free.push_back(cell);
  }
  // Fisher-Yates with our generator, so the layout is the same everywhere.
  for (size_t i = free.size() - 1; i > 0; --i) {
    std::swap(free[i], free[static_cast<size_t>(rng.Int(0, static_cast<int>(i)))]);
  }

  std::ostringstream model;
  model << "ValidationAlgo1: detection validation frames, one camera\n"
        << params.Describe() << cosmics.Describe() << sensor.HotPixels().size()
        << " hot pixels in the master darks (their residual after subtraction is noise)\n"
        << "scenes exposed " << kExposure << " s at " << kTemperature << " degC; see Truth_*.txt\n"
        << "spots: Gaussian PSF (sigma 1.3 to 1.8 px) integrated over the pixel, one per grid cell "
           "of "
        << Grid::kCell << " px, jittered by up to 4 px, grid inside a " << Grid::kOrigin
        << " px frame\n";
  out.WriteText("ValidationAlgo1/Model.txt", model.str());

  // Image_1: the flat field alone.
  {
    Scene scene;
    scene.sky = 150.0;
    scene.cosmicRays = DrawClearCosmicRays(cosmics, scene, params.rows, params.cols, 14.0, rng);
    WriteScene(out, sensor, scene, "Image_1", "flat field, no object", rng);
  }
  // LowExposure: faint spots only, every one peaking well below 800 ADU.
  {
    Scene scene;
    scene.sky = 60.0;
    PlaceSpots(scene, std::vector<int>(free.begin(), free.begin() + 40), 250.0, 550.0, rng);
    scene.cosmicRays = DrawClearCosmicRays(cosmics, scene, params.rows, params.cols, 14.0, rng);
    WriteScene(out, sensor, scene, "LowExposure", "40 faint spots (peaks 250 to 550 ADU)", rng);
  }
  // PTC: 117 spots, 28 bright and 89 faint, among the distractors.
  {
    Scene scene;
    scene.sky = 150.0;
    PlaceSpots(scene, std::vector<int>(free.begin(), free.begin() + 28), 1400.0, 5000.0, rng);
    PlaceSpots(scene, std::vector<int>(free.begin() + 28, free.begin() + 117), 300.0, 600.0, rng);
    scene.blotches.push_back(blotch);
    scene.scratches.push_back(scratch);
    PlaceHotPixels(scene, std::vector<int>(free.begin() + 117, free.end()), rng);
    scene.cosmicRays = DrawClearCosmicRays(cosmics, scene, params.rows, params.cols, 14.0, rng);
    WriteScene(out, sensor, scene, "PTC",
               "117 spots (28 with peaks 1400 to 5000 ADU, 89 with 300 to 600 ADU), a stain, a "
               "scratch, new hot pixels, cosmic rays",
               rng);
  }
  // PTC_NEG: the distractors without any spot.
  {
    Scene scene;
    scene.sky = 150.0;
    scene.blotches.push_back(blotch);
    scene.scratches.push_back(scratch);
    PlaceHotPixels(scene, std::vector<int>(free.begin(), free.begin() + 30), rng);
    scene.cosmicRays = DrawClearCosmicRays(cosmics, scene, params.rows, params.cols, 14.0, rng);
    WriteScene(out, sensor, scene, "PTC_NEG",
               "no spot: a stain, a scratch, new hot pixels, cosmic rays", rng);
  }
}

}  // namespace

OMBRIX_DATA_SET("ValidationAlgo", GenerateValidationAlgo);

}  // namespace datagen
