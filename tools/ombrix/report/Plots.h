// Plots of the ombrix tool, drawn with PLplot's cairo driver: line plots of curves with markers,
// histograms of 32-bit float images and false-colour pictures of 32-bit float maps, as PNG (and
// SVG with searchable text for the line plots and histograms). Inputs: finite or non-finite
// doubles (non-finite points are left out), single-channel images.
#pragma once

#include <cmath>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace ombrix_tool {

struct Curve {
  std::string label;
  std::vector<double> x, y;
};
struct VerticalMarker {  // dashed vertical line with label
  std::string label;
  double x;
};
struct HorizontalMarker {  // dashed horizontal line with label
  std::string label;
  double y;
};
struct LinePlot {
  std::string title, xLabel, yLabel;  // labels include units, e.g. "cycles/pixel"
  double xmin = NAN, xmax = NAN, ymin = NAN, ymax = NAN;  // NAN: from the data
  std::vector<Curve> curves;                              // legend shows every label
  std::vector<VerticalMarker> vmarkers;                   // e.g. MTF50, Nyquist, cut frequency
  std::vector<HorizontalMarker> hmarkers;                 // e.g. MTF = 0.5, 0.1
};

// Size in pixels of every PNG these functions write.
constexpr int kPlotWidth = 800;
constexpr int kPlotHeight = 600;
// The axes box of a line plot or histogram, as fractions of the picture measured from its left
// and bottom edges (PLplot's normalised viewport).
constexpr double kPlotBoxLeft = 0.10, kPlotBoxRight = 0.95;
constexpr double kPlotBoxBottom = 0.12, kPlotBoxTop = 0.90;

// Every function throws std::runtime_error("<path>: <reason>") when it cannot write a file or the
// input cannot be plotted; it writes to a temporary name in the target folder and renames, so a
// failure leaves no half file.

// Line plot with axes, ticks, grid, legend (PLplot, cairo driver). Writes PNG at pngPath and, when
// svgPath is not empty, the same plot as SVG. Curves need as many x as y values; non-finite points
// break a curve. Markers are drawn in the legend and labelled at their line.
void PlotCurves(const LinePlot& plot, const std::string& pngPath, const std::string& svgPath = "");

// Histogram of the finite values of a 32F image (bins over [lo, hi]; lo/hi NAN: 0 and the 99.9th
// pct; lo NAN is the smallest value instead when that is negative). Values outside [lo, hi] are
// not drawn; the legend counts them. Other single-channel depths are converted. bins: 1 to 100000.
void PlotHistogram(const cv::Mat& values32f, int bins, double lo, double hi,
                   const std::string& title, const std::string& xLabel, const std::string& pngPath,
                   const std::string& svgPath = "");

// False-colour picture of a 32F map with a labelled colour bar (unit in the bar label). Values
// are clamped to [lo, hi] (lo/hi NAN: as for the histogram, 0 and the 99.9th percentile);
// non-finite pixels stay white. Maps larger than the plot are shown averaged over blocks.
void PlotFalseColour(const cv::Mat& map32f, double lo, double hi, const std::string& title,
                     const std::string& unit, const std::string& pngPath);

}  // namespace ombrix_tool
