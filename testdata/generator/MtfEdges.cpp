// Single slanted edges for the MTF suite: "MTF_Edge1.tif" (sharp: the cut frequency lies beyond
// Nyquist, so the efficiency is capped) and "MTF_Edge2.tif" (soft: cut frequency near 0.225 cycles
// per pixel, efficiency near 45 %). Each is an ideal step blurred by a Gaussian PSF and integrated
// over square pixels (SlantedEdge.h), 16-bit, with a little Gaussian read noise.
#include <sstream>

#include "DataSet.h"
#include "SlantedEdge.h"

namespace {

// PSF widths found once by bisection with the suite's single-edge measurement on these very
// renderings (seed and noise included), then frozen: Edge1 aims at a cut frequency of 0.575
// (middle of 0.55 .. 0.6), Edge2 at an efficiency of 45.25 % (middle of 45.0 .. 45.5), which with
// the Nyquist sample 0.4941 of a 128-column region at 5 degrees is a cut frequency of 0.2236,
// inside 0.2 .. 0.25 and 0.0014 from its middle.
constexpr double kEdge1Sigma = 0.5024;
constexpr double kEdge2Sigma = 1.4996;

datagen::SlantedEdge EdgeModel(double sigma, std::uint64_t seed) {
  datagen::SlantedEdge edge;
  edge.rows = 256;
  edge.cols = 128;
  edge.angleDegrees = 5.0;
  edge.sigma = sigma;
  edge.dark = 2000.0;
  edge.bright = 12000.0;
  edge.darkFirst = true;
  edge.horizontal = false;
  edge.offset = 0.0;
  edge.noise = 20.0;
  edge.seed = seed;
  return edge;
}

std::string Describe(const char* file, const datagen::SlantedEdge& e) {
  std::ostringstream text;
  text.precision(10);
  text << file << ": " << e.cols << " columns x " << e.rows << " rows, CV_16UC1\n"
       << "  edge through the image centre, tilted " << e.angleDegrees
       << " degrees from vertical (leaning right going down), dark " << e.dark
       << " on the left, bright " << e.bright << " on the right\n"
       << "  Gaussian PSF sigma " << e.sigma << " px, square pixel aperture\n"
       << "  additive Gaussian noise sigma " << e.noise << " DN (datagen::Random seed " << e.seed
       << "), rounded to integers\n"
       << "  true MTF(f) = exp(-2 pi^2 sigma^2 f^2) |sin(pi f) / (pi f)|; true cut frequency "
       << datagen::SlantedEdgeTrueCrossing(e.sigma, 0.1) << ", MTF50 "
       << datagen::SlantedEdgeTrueCrossing(e.sigma, 0.5) << " cycles per pixel\n";
  return text.str();
}

void GenerateMtfEdges(datagen::Output& out) {
  const datagen::SlantedEdge edge1 = EdgeModel(kEdge1Sigma, 61);
  const datagen::SlantedEdge edge2 = EdgeModel(kEdge2Sigma, 62);
  out.WriteTiff("MTF_Edge1.tif", datagen::RenderSlantedEdge16U(edge1));
  out.WriteTiff("MTF_Edge2.tif", datagen::RenderSlantedEdge16U(edge2));
  out.WriteText("MTF_Edges.txt", "Model of the single slanted-edge images\n" +
                                     Describe("MTF_Edge1.tif", edge1) +
                                     Describe("MTF_Edge2.tif", edge2));
}

}  // namespace

OMBRIX_DATA_SET("MtfEdges", GenerateMtfEdges);
