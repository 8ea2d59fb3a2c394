// Single slanted edges for the MTF suite: "MTF_Edge1.tif" (sharp: the cut frequency lies beyond
// Nyquist, so the efficiency is capped) and "MTF_Edge2.tif" (soft: cut frequency near 0.225 cycles
// per pixel, efficiency near 45 %). Each is an ideal step blurred by a Gaussian PSF and integrated
// over square pixels (SlantedEdge.h), 16-bit, with a little Gaussian read noise.
#include <sstream>

#include "DataSet.h"
#include "MtfEdgeModels.h"
#include "SlantedEdge.h"

namespace {

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
  const datagen::SlantedEdge edge1 =
      datagen::MtfEdgeModel(datagen::kMtfEdge1Sigma, datagen::kMtfEdge1Seed);
  const datagen::SlantedEdge edge2 =
      datagen::MtfEdgeModel(datagen::kMtfEdge2Sigma, datagen::kMtfEdge2Seed);
  out.WriteTiff("MTF_Edge1.tif", datagen::RenderSlantedEdge16U(edge1));
  out.WriteTiff("MTF_Edge2.tif", datagen::RenderSlantedEdge16U(edge2));
  out.WriteText("MTF_Edges.txt", "Model of the single slanted-edge images\n" +
                                     Describe("MTF_Edge1.tif", edge1) +
                                     Describe("MTF_Edge2.tif", edge2));
}

}  // namespace

OMBRIX_DATA_SET("MtfEdges", GenerateMtfEdges);
