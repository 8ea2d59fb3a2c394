// Writes a report like the tool's into the folder given as the only argument (created if need
// be): the MTF curves of
// four edges with their markers, an edge profile, the histogram and false-colour picture of a
// noise map, and a summary table of four edges. The browser check (check_report.py) opens it.
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <opencv2/core.hpp>
#include <string>

#include "Plots.h"
#include "Report.h"

using namespace ombrix_tool;

namespace {

constexpr int kEdges = 4;

// MTF of a Gaussian blur of the given sigma (pixels) at frequency f (cycles/pixel).
double GaussianMtf(double sigma, double f) {
  const double pi = 3.14159265358979323846;
  return std::exp(-2.0 * pi * pi * sigma * sigma * f * f);
}

double Mtf50(double sigma) {
  const double pi = 3.14159265358979323846;
  return std::sqrt(std::log(2.0) / (2.0 * pi * pi * sigma * sigma));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUTPUT_FOLDER\n", argv[0]);
    return 2;
  }
  const std::string out = std::string(argv[1]) + "/";
  try {
    std::filesystem::create_directories(argv[1]);
    LinePlot mtf;
    mtf.title = "MTF of every edge";
    mtf.xLabel = "spatial frequency (cycles/pixel)";
    mtf.yLabel = "MTF";
    mtf.xmin = 0.0;
    mtf.xmax = 1.0;
    mtf.ymin = 0.0;
    mtf.ymax = 1.05;
    ReportTable summary{
        {"edge", "side", "angle (deg)", "MTF50 (cycles/pixel)", "cut (cycles/pixel)"}, {}};
    for (int e = 0; e < kEdges; ++e) {
      const double sigma = 0.6 + 0.25 * e;
      Curve curve{"edge " + std::to_string(e + 1) + " <&>", {}, {}};
      for (int i = 0; i <= 100; ++i) {
        curve.x.push_back(i / 100.0);
        curve.y.push_back(GaussianMtf(sigma, i / 100.0));
      }
      mtf.curves.push_back(curve);
      char mtf50[32];
      std::snprintf(mtf50, sizeof mtf50, "%.4f", Mtf50(sigma));
      summary.rows.push_back({std::to_string(e + 1), e % 2 ? "vertical" : "horizontal",
                              std::to_string(5 + e), mtf50, "-"});
    }
    mtf.vmarkers = {{"Nyquist", 0.5}, {"MTF50 edge 1", Mtf50(0.6)}};
    mtf.hmarkers = {{"MTF = 0.5", 0.5}, {"MTF = 0.1", 0.1}};
    PlotCurves(mtf, out + "mtf.png", out + "mtf.svg");

    LinePlot esf;
    esf.title = "Edge spread function, edge 1";
    esf.xLabel = "distance from the edge (pixels)";
    esf.yLabel = "signal (DN)";
    Curve profile{"ESF", {}, {}};
    for (int i = -40; i <= 40; ++i) {
      profile.x.push_back(i / 4.0);
      profile.y.push_back(1000.0 + 3000.0 / (1.0 + std::exp(-i / 4.0 / 0.6)));
    }
    esf.curves.push_back(profile);
    PlotCurves(esf, out + "esf.png");

    cv::Mat noise(300, 400, CV_32F);
    for (int r = 0; r < noise.rows; ++r) {
      for (int c = 0; c < noise.cols; ++c) {
        noise.at<float>(r, c) = static_cast<float>(4.0 + 0.01 * c + std::sin(0.05 * r));
      }
    }
    noise.at<float>(0, 0) = NAN;
    PlotHistogram(noise, 64, NAN, NAN, "Temporal noise", "temporal noise (DN)",
                  out + "histogram.png", out + "histogram.svg");
    PlotFalseColour(noise, NAN, NAN, "Temporal noise map", "temporal noise (DN)",
                    out + "noise.png");

    ReportPage page;
    page.title = "ombrix mtf <sample> & \"report\"";
    page.toolVersion = "0.1";
    page.commandLine = "ombrix mtf chart.tif --pixel-pitch 3.45 --out \"<dir>\"";
    page.sections.push_back({"Chart \"chart.tif\"",
                             "Four edges measured.\n\nThe interval is 95 % <wide>.",
                             {summary, ReportTable{{"figure", "value"}, {{"edges", "4"}}}},
                             {{"MTF curves", out + "mtf.png"},
                              {"MTF curves (SVG)", out + "mtf.svg"},
                              {"Edge spread function", out + "esf.png"}}});
    page.sections.push_back(
        {"Noise",
         "",
         {},
         {{"Histogram", out + "histogram.png"}, {"Noise map", out + "noise.png"}}});
    WriteReport(page, out + "report.html");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  return 0;
}
