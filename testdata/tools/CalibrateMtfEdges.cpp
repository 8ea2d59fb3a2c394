// Finds the PSF widths of "MTF_Edge1.tif" and "MTF_Edge2.tif" by bisection with the single-edge
// measurement: Edge1's cut frequency at 0.575, Edge2's efficiency at 45.25 %. Run once; the
// results are frozen in generator/MtfEdgeModels.h.
//   calibrate_mtf_edges
#include <cstdio>

#include "Bisect.h"
#include "MtfEdgeModels.h"
#include "mtf/MtfMeasurement.h"

namespace {

MtfResult Measure(double sigma, std::uint64_t seed) {
  CMtfMeasurement measurement;
  MtfResult result;
  measurement.MeasureEdge(datagen::RenderSlantedEdge16U(datagen::MtfEdgeModel(sigma, seed)),
                          result);
  return result;
}

// Both figures fall as sigma grows.
template <class Figure>
double Bisect(double lo, double hi, double target, std::uint64_t seed, Figure figure) {
  return datagen::BisectFalling(lo, hi, target, 30,
                                [&](double sigma) { return figure(Measure(sigma, seed)); });
}

}  // namespace

int main() {
  const double sigma1 = Bisect(0.4, 0.6, 0.575, datagen::kMtfEdge1Seed,
                               [](const MtfResult& r) { return r.cutFrequency; });
  const double sigma2 = Bisect(1.3, 1.7, 45.25, datagen::kMtfEdge2Seed,
                               [](const MtfResult& r) { return r.efficiency; });
  for (const auto& [name, sigma, seed] :
       {std::tuple{"Edge1", sigma1, datagen::kMtfEdge1Seed},
        std::tuple{"Edge2", sigma2, datagen::kMtfEdge2Seed},
        std::tuple{"Edge1 frozen", datagen::kMtfEdge1Sigma, datagen::kMtfEdge1Seed},
        std::tuple{"Edge2 frozen", datagen::kMtfEdge2Sigma, datagen::kMtfEdge2Seed}}) {
    const MtfResult r = Measure(sigma, seed);
    std::printf("%-13s sigma %.6f  cut frequency %.5f  efficiency %.3f  Nyquist %.5f\n", name,
                sigma, r.cutFrequency, r.efficiency, r.nyquist);
  }
  return 0;
}
