// Data set "LightSources": light-source calibration runs on the bench camera. Each folder holds
// the camera's master darks (1 s, 150 s) and raw 150 s frames of a flat field lit by one light
// source (folder name = its serial number), with the bench optics' vignetting, the sensor's
// response non-uniformity, noise and cosmic-ray hits.
//
// The light source's factor is its output relative to the nominal source, for which the bench
// camera reads kNominalLevel ADU at 150 s. The calibration procedure estimates it as the mean of
// the central region (middle half in each direction) of the pixel-wise minimum of the
// dark-subtracted frames, divided by kNominalLevel. The minimum of noisy frames is biased low, so
// the generator renders each source at the illumination level whose procedure result equals the
// source's factor: it evaluates the procedure on the rendered frames with its own code and adjusts
// the level by secant steps (same noise draws each time). Truth.txt records factor, level, the
// adjustment and the procedure result.
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "DataSet.h"
#include "Random.h"
#include "SensorModel.h"

namespace datagen {
namespace {

constexpr double kNominalLevel = 20000.0;  // ADU at 150 s in the centre, factor-1 source
constexpr double kExposure = 150.0;
constexpr double kTolerance = 2e-6;  // the procedure's result must match the factor this closely

cv::Rect CentralRegion(int rows, int cols) { return {cols / 4, rows / 4, cols / 2, rows / 2}; }

double CentralMean(const cv::Mat& image) {
  const cv::Rect r = CentralRegion(image.rows, image.cols);
  double sum = 0.0;
  for (int y = r.y; y < r.y + r.height; ++y) {
    const double* p = image.ptr<double>(y);
    for (int x = r.x; x < r.x + r.width; ++x) sum += p[x];
  }
  return sum / (static_cast<double>(r.width) * r.height);
}

// Bench optics: radial fall-off 1 - a r^2 - b r^4 about an optical centre slightly off the
// sensor centre (r relative to the half-diagonal), times the sensor's response non-uniformity,
// normalised to a mean of 1 over the central region.
struct FlatField {
  double a = 0.12;
  double b = 0.06;
  double centreDx = 6.0;  // px
  double centreDy = -4.0;
  double prnu = 0.004;  // relative rms

  cv::Mat Render(int rows, int cols, Random& rng) const {
    cv::Mat field(rows, cols, CV_64F);
    const double cx = 0.5 * (cols - 1) + centreDx;
    const double cy = 0.5 * (rows - 1) + centreDy;
    const double half = 0.5 * std::sqrt(static_cast<double>(rows) * rows + cols * cols);
    for (int y = 0; y < rows; ++y) {
      double* f = field.ptr<double>(y);
      for (int x = 0; x < cols; ++x) {
        const double r2 = ((x - cx) * (x - cx) + (y - cy) * (y - cy)) / (half * half);
        f[x] = (1.0 - a * r2 - b * r2 * r2) * (1.0 + prnu * rng.Normal());
      }
    }
    field /= CentralMean(field);
    return field;
  }
};

struct SourceRun {
  std::string folder;
  double factor;
  int frames;
  double temperature;
  std::uint64_t seed;
};

struct Rendered {
  std::vector<cv::Mat> frames;  // 16-bit
  double procedure = 0.0;       // the calibration procedure's result on them
  int hits = 0;
};

// The calibration procedure, written independently of the plug-in: frames minus the 150 s
// master dark, pixel-wise minimum, central mean over the nominal level.
double Procedure(const std::vector<cv::Mat>& frames, const cv::Mat& dark150) {
  cv::Mat minimum(dark150.rows, dark150.cols, CV_64F, cv::Scalar(1e300));
  for (const cv::Mat& frame : frames) {
    for (int y = 0; y < frame.rows; ++y) {
      const std::uint16_t* f = frame.ptr<std::uint16_t>(y);
      const std::uint16_t* d = dark150.ptr<std::uint16_t>(y);
      double* m = minimum.ptr<double>(y);
      for (int x = 0; x < frame.cols; ++x) {
        m[x] = std::min(m[x], static_cast<double>(f[x]) - static_cast<double>(d[x]));
      }
    }
  }
  return CentralMean(minimum) / kNominalLevel;
}

Rendered Render(const Sensor& sensor, const cv::Mat& field, const SourceRun& run, double level,
                const cv::Mat& dark150) {
  const CosmicRayModel cosmics;
  Random rng(run.seed * 7919u + 1u);
  Rendered r;
  const cv::Mat photo = field * level;
  for (int i = 0; i < run.frames; ++i) {
    cv::Mat frame = sensor.Expose(kExposure, run.temperature, photo, rng);
    const auto hits = DrawCosmicRays(cosmics, frame.rows, frame.cols, rng);
    DepositCosmicRays(frame, hits);
    r.hits += static_cast<int>(hits.size());
    r.frames.push_back(Sensor::Quantize(frame));
  }
  r.procedure = Procedure(r.frames, dark150);
  return r;
}

void WriteSource(Output& out, const Sensor& sensor, const cv::Mat& field, const SourceRun& run) {
  Random darkRng(run.seed);
  const cv::Mat dark1 = sensor.MasterDark(1.0, run.temperature, darkRng);
  const cv::Mat dark150 = sensor.MasterDark(kExposure, run.temperature, darkRng);

  // Secant search for the level whose procedure result is the factor.
  const double nominal = run.factor * kNominalLevel;
  double l0 = nominal;
  Rendered r0 = Render(sensor, field, run, l0, dark150);
  double l1 = nominal * (1.0 + (run.factor - r0.procedure) / run.factor);
  Rendered r1 = Render(sensor, field, run, l1, dark150);
  int evaluations = 2;
  while (std::abs(r1.procedure - run.factor) > kTolerance) {
    if (++evaluations > 8) throw std::runtime_error(run.folder + ": level search did not converge");
    const double l2 = l1 + (run.factor - r1.procedure) * (l1 - l0) / (r1.procedure - r0.procedure);
    l0 = l1;
    r0 = std::move(r1);
    l1 = l2;
    r1 = Render(sensor, field, run, l1, dark150);
  }

  out.WriteTiff(run.folder + "/Black_1s.tif", dark1);
  out.WriteTiff(run.folder + "/Black_150s.tif", dark150);
  for (int i = 0; i < run.frames; ++i) {
    char name[32];
    std::snprintf(name, sizeof(name), "/RawSignal_%03d.tif", i + 1);
    out.WriteTiff(run.folder + name, r1.frames[static_cast<size_t>(i)]);
  }
  std::ostringstream truth;
  truth << std::setprecision(10) << "folder " << run.folder << "\n"
        << "light-source factor (truth): " << run.factor << "\n"
        << "nominal level at 150 s: " << kNominalLevel << " ADU\n"
        << "illumination level rendered: " << l1 << " ADU (factor x nominal x " << l1 / nominal
        << ", the adjustment for the minimum's low bias)\n"
        << "procedure result on the written frames (generator's own code): " << r1.procedure << " ("
        << evaluations << " evaluations)\n"
        << run.frames << " raw frames of " << kExposure << " s at " << run.temperature << " degC, "
        << r1.hits << " cosmic-ray hits in all, run seed " << run.seed << "\n";
  out.WriteText(run.folder + "/Truth.txt", truth.str());
}

}  // namespace

void GenerateLightSources(Output& out) {
  SensorParameters params;
  const Sensor sensor(params, 8001);  // the bench camera
  Random fieldRng(8002);
  const FlatField optics;
  const cv::Mat field = optics.Render(params.rows, params.cols, fieldRng);

  // Drift of the QT7M21013C source between its three repeated measurements.
  const double drift[3] = {1.0, 1.0014, 0.9989};
  const double factorC = 0.98437;
  const std::vector<SourceRun> runs = {
      {"QT7M21013G", 0.98523, 3, 20.0, 8101},
      {"QT7M21013F", 0.99174, 3, 20.0, 8102},
      {"QT7M21013E", 0.97081, 2, 20.0, 8103},
      {"QT7M21013D", 0.98891, 4, 20.0, 8104},
      {"QT7M21013B", 0.97315, 3, 20.0, 8105},
      {"QT7M21013A", 0.99582, 3, 20.0, 8106},
      {"QT7M21010A", 0.97958, 2, 20.0, 8107},
      {"QT7M21013C", factorC, 3, 20.0, 8108},
      {"QT7M21013C/Measure1", factorC * drift[0], 3, 20.0, 8109},
      {"QT7M21013C/Measure2", factorC * drift[1], 3, 20.0, 8110},
      {"QT7M21013C/Measure3", factorC * drift[2], 3, 20.0, 8111},
      {"QT7M21010B", 0.98178, 3, 20.0, 8112},
      {"QT7M21013H", 0.9908, 4, 20.0, 8113},
      // The same source on a 20 degC and a 25 degC bench: LED output and dark current change.
      {"SNQT7M21013E_20degC", 0.9701563, 3, 20.0, 8114},
      {"SNQT7M21013E_25degC", 0.968779, 3, 25.0, 8115},
  };
  for (const SourceRun& run : runs) WriteSource(out, sensor, field, run);

  std::ostringstream model;
  model << params.Describe() << CosmicRayModel().Describe() << "vignetting 1 - " << optics.a
        << " r^2 - " << optics.b << " r^4 (r over the half-diagonal), optical centre offset ("
        << optics.centreDx << ", " << optics.centreDy << ") px, PRNU " << optics.prnu
        << " rms, field normalised to mean 1 over the central region\n"
        << "QT7M21013C Measure1..3: drift factors " << drift[0] << ", " << drift[1] << ", "
        << drift[2] << "\n";
  out.WriteText("LightSources_Model.txt", model.str());
}

OMBRIX_DATA_SET("LightSources", GenerateLightSources);

}  // namespace datagen
