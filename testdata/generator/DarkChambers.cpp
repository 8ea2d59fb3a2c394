// Data set "DarkChambers": dark-chamber verification runs. Each folder holds the camera's master
// darks (1 s and 150 s) and raw 150 s frames taken inside the chamber. A closed chamber gives
// dark signal, noise, hot pixels and cosmic rays only; a leaking one adds a faint glow that enters
// at one edge and is present in every frame.
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>

#include "DataSet.h"
#include "Random.h"
#include "SensorModel.h"

namespace datagen {
namespace {

// Glow of a light leak through a gap at the left edge: falls off exponentially into the sensor
// and has a Gaussian extent along the edge. ADU in a 150 s frame.
struct LightLeak {
  double amplitude = 150.0;  // ADU at the edge, centre of the gap
  double decay = 20.0;       // px, 1/e distance into the sensor
  double centreRow = 0.45;   // fraction of the height
  double halfWidth = 40.0;   // px, Gaussian sigma along the edge

  cv::Mat Render(int rows, int cols) const {
    cv::Mat glow(rows, cols, CV_64F);
    const double y0 = centreRow * rows;
    for (int y = 0; y < rows; ++y) {
      double* g = glow.ptr<double>(y);
      const double along = (y - y0) / halfWidth;
      for (int x = 0; x < cols; ++x) {
        g[x] = amplitude * std::exp(-x / decay) * std::exp(-0.5 * along * along);
      }
    }
    return glow;
  }
};

struct ChamberRun {
  const char* folder;
  std::uint64_t sensorSeed;
  std::uint64_t seed;
  int frames;
  bool leak;
};

void WriteChamber(Output& out, const ChamberRun& run) {
  const SensorParameters params;
  const CosmicRayModel cosmics;
  const double temperature = params.referenceTemperature;
  const Sensor sensor(params, run.sensorSeed);
  Random rng(run.seed);
  const std::string folder = run.folder;

  out.WriteTiff(folder + "/Black_1s.tif", sensor.MasterDark(1.0, temperature, rng));
  out.WriteTiff(folder + "/Black_150s.tif", sensor.MasterDark(150.0, temperature, rng));

  const LightLeak leak;
  const cv::Mat glow = run.leak ? leak.Render(params.rows, params.cols) : cv::Mat();
  std::ostringstream truth;
  truth << "folder " << folder << ": " << run.frames << " raw frames of 150 s at " << temperature
        << " degC, sensor seed " << run.sensorSeed << ", run seed " << run.seed << "\n"
        << params.Describe() << cosmics.Describe() << sensor.HotPixels().size() << " hot pixels\n";
  if (run.leak) {
    truth << "light leak at the left edge: " << leak.amplitude << " ADU at the edge, decay "
          << leak.decay << " px, centred on row " << leak.centreRow * params.rows
          << ", sigma along the edge " << leak.halfWidth << " px; expected defects: 1 region\n";
  } else {
    truth << "closed chamber; expected defects: 0\n";
  }
  for (int i = 1; i <= run.frames; ++i) {
    cv::Mat frame = sensor.Expose(150.0, temperature, glow, rng);
    const auto hits = DrawCosmicRays(cosmics, params.rows, params.cols, rng);
    DepositCosmicRays(frame, hits);
    char name[32];
    std::snprintf(name, sizeof(name), "/RawSignal_%03d.tif", i);
    out.WriteTiff(folder + name, Sensor::Quantize(frame));
    int tracks = 0;
    for (const auto& h : hits) tracks += (h.x0 != h.x1 || h.y0 != h.y1) ? 1 : 0;
    truth << "RawSignal_" << i << ": " << hits.size() << " cosmic-ray hits (" << tracks
          << " tracks)\n";
  }
  out.WriteText(folder + "/Truth.txt", truth.str());
}

}  // namespace

void GenerateDarkChambers(Output& out) {
  // DarkChamber and DarkChamberFail are taken with the same camera; DarkChamber2 with another.
  WriteChamber(out, {"DarkChamber", 7001, 7101, 3, false});
  WriteChamber(out, {"DarkChamber2", 7002, 7102, 4, false});
  WriteChamber(out, {"DarkChamberFail", 7001, 7103, 3, true});
}

OMBRIX_DATA_SET("DarkChambers", GenerateDarkChambers);

}  // namespace datagen
