// The plots as pictures: PNGs decode at the plot size, curves, markers, bars and colours lie where
// their data put them, the legend is drawn, the SVG holds the labels as text, bad input and
// unwritable folders raise errors naming the file and leave no file behind.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <thread>

#include "Plots.h"
#include "TemporaryFolder.h"
#include "WrittenFiles.h"

using namespace ombrix_tool;
using namespace ombrix_tool_test;

namespace {

// The first three series colours (RGB) and the grid's.
const cv::Vec3b kBlue(31, 119, 180);
const cv::Vec3b kRed(214, 39, 40);
const cv::Vec3b kGreen(44, 160, 44);
const cv::Vec3b kGridGrey(210, 210, 210);

// The axes box in picture pixels (rows counted from the top).
const double kBoxLeft = kPlotBoxLeft * kPlotWidth;
const double kBoxRight = kPlotBoxRight * kPlotWidth;
const double kBoxTop = (1.0 - kPlotBoxTop) * kPlotHeight;
const double kBoxBottom = (1.0 - kPlotBoxBottom) * kPlotHeight;

double ColumnOf(double x, double xmin, double xmax) {
  return kBoxLeft + (x - xmin) / (xmax - xmin) * (kBoxRight - kBoxLeft);
}
double RowOf(double y, double ymin, double ymax) {
  return kBoxBottom - (y - ymin) / (ymax - ymin) * (kBoxBottom - kBoxTop);
}

cv::Mat ReadRgb(const std::string& path) {
  cv::Mat bgr = cv::imread(path, cv::IMREAD_COLOR);
  cv::Mat rgb;
  if (!bgr.empty()) cv::cvtColor(bgr, rgb, cv::COLOR_BGR2RGB);
  return rgb;
}

bool Near(const cv::Vec3b& a, const cv::Vec3b& b, int tolerance = 40) {
  return std::abs(a[0] - b[0]) + std::abs(a[1] - b[1]) + std::abs(a[2] - b[2]) <= tolerance;
}

// Positions (column, row) of the pixels of a colour.
std::vector<cv::Point> PixelsOf(const cv::Mat& rgb, const cv::Vec3b& colour, int tolerance = 40) {
  std::vector<cv::Point> points;
  for (int r = 0; r < rgb.rows; ++r) {
    for (int c = 0; c < rgb.cols; ++c) {
      if (Near(rgb.at<cv::Vec3b>(r, c), colour, tolerance)) points.emplace_back(c, r);
    }
  }
  return points;
}

// The SVG's text with numeric character references (&#x30;) and the XML entities decoded, so
// that a label can be searched for as it was given.
std::string DecodeXmlText(const std::string& xml) {
  std::string out;
  for (std::size_t i = 0; i < xml.size(); ++i) {
    if (xml[i] != '&') {
      out += xml[i];
      continue;
    }
    const std::size_t end = xml.find(';', i);
    if (end == std::string::npos) {
      out += xml[i];
      continue;
    }
    const std::string entity = xml.substr(i + 1, end - i - 1);
    unsigned long code = 0;
    if (entity.size() > 2 && entity[0] == '#' && (entity[1] == 'x' || entity[1] == 'X')) {
      code = std::strtoul(entity.c_str() + 2, nullptr, 16);
    } else if (entity.size() > 1 && entity[0] == '#') {
      code = std::strtoul(entity.c_str() + 1, nullptr, 10);
    } else if (entity == "lt") {
      code = '<';
    } else if (entity == "gt") {
      code = '>';
    } else if (entity == "amp") {
      code = '&';
    } else if (entity == "quot") {
      code = '"';
    } else if (entity == "apos") {
      code = '\'';
    } else {
      out += xml[i];
      continue;
    }
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
    i = end;
  }
  return out;
}

Curve Line(const std::string& label, double y0, double y1, int points = 51) {
  Curve curve{label, {}, {}};
  for (int i = 0; i < points; ++i) {
    const double t = static_cast<double>(i) / (points - 1);
    curve.x.push_back(t);
    curve.y.push_back(y0 + t * (y1 - y0));
  }
  return curve;
}

// The plot drawn into the folder as a PNG, read back (empty when it cannot be read).
cv::Mat Drawn(const CTemporaryFolder& folder, const LinePlot& plot,
              const std::string& name = "plot.png") {
  PlotCurves(plot, folder / name);
  return ReadRgb(folder / name);
}

// Two plots drawn into the folder, read back (empty where one could not be read), and the pixels
// where the pictures differ.
struct PlotDifference {
  cv::Mat first, second;
  std::vector<cv::Point> changed;
};

PlotDifference DrawAndCompare(const CTemporaryFolder& folder, const LinePlot& first,
                              const LinePlot& second) {
  PlotDifference result;
  result.first = Drawn(folder, first, "first.png");
  result.second = Drawn(folder, second, "second.png");
  if (result.first.empty() || result.second.empty()) return result;
  cv::Mat difference;
  cv::absdiff(result.first, result.second, difference);
  cv::cvtColor(difference, difference, cv::COLOR_RGB2GRAY);
  cv::findNonZero(difference > 0, result.changed);
  return result;
}

// Both axes from 0 to 1, with the given curves.
LinePlot UnitPlot(std::vector<Curve> curves = {}) {
  LinePlot plot{"Test plot", "frequency (cycles/pixel)", "MTF", 0.0, 1.0, 0.0, 1.0, {}, {}, {}};
  plot.curves = std::move(curves);
  return plot;
}

}  // namespace

TEST(Plots, CurvesPngDecodesAtThePlotSize) {
  CTemporaryFolder folder;
  LinePlot plot = UnitPlot({Line("flat", 0.25, 0.25)});
  const cv::Mat picture = Drawn(folder, plot);
  ASSERT_FALSE(picture.empty());
  EXPECT_EQ(picture.cols, kPlotWidth);
  EXPECT_EQ(picture.rows, kPlotHeight);
  // The background is white: the corners of the picture.
  EXPECT_EQ(picture.at<cv::Vec3b>(2, 2), cv::Vec3b(255, 255, 255));
  EXPECT_EQ(picture.at<cv::Vec3b>(kPlotHeight - 3, kPlotWidth - 3), cv::Vec3b(255, 255, 255));
  EXPECT_EQ(folder.Entries(), std::vector<std::string>{"plot.png"});
}

TEST(Plots, CurvesLieWhereTheirDataPutThem) {
  CTemporaryFolder folder;
  LinePlot plot = UnitPlot({Line("flat", 0.25, 0.25), Line("rising", 0.0, 1.0)});
  const cv::Mat picture = Drawn(folder, plot);
  ASSERT_FALSE(picture.empty());

  // The flat curve: a horizontal band at y = 0.25 across the whole box.
  const std::vector<cv::Point> flat = PixelsOf(picture, kBlue, 20);
  const double flatRow = RowOf(0.25, 0, 1);
  int onLine = 0, left = kPlotWidth, right = 0;
  for (const cv::Point& p : flat) {
    if (std::abs(p.y - flatRow) <= 2.5 && p.x > kBoxLeft - 2 && p.x < kBoxRight + 2) {
      ++onLine;
      left = std::min(left, p.x);
      right = std::max(right, p.x);
    }
  }
  EXPECT_GT(onLine, 0.9 * (kBoxRight - kBoxLeft));
  EXPECT_NEAR(left, kBoxLeft, 4);
  EXPECT_NEAR(right, kBoxRight, 4);

  // The rising curve y = x: at several columns inside the box, red pixels at the row of y = x.
  // (The legend, in the empty top left corner, holds a red line sample too.)
  for (double x : {0.1, 0.3, 0.5, 0.7, 0.9}) {
    const int column = static_cast<int>(std::lround(ColumnOf(x, 0, 1)));
    const double expectedRow = RowOf(x, 0, 1);
    int found = 0;
    for (int r = 0; r < picture.rows; ++r) {
      if (Near(picture.at<cv::Vec3b>(r, column), kRed, 60) && std::abs(r - expectedRow) <= 3) {
        ++found;
      }
    }
    EXPECT_GT(found, 0) << "x = " << x;
  }
  // And nowhere else in the lower half of the box, which the legend does not reach.
  for (const cv::Point& p : PixelsOf(picture, kRed, 60)) {
    if (p.y > 0.5 * (kBoxTop + kBoxBottom) && p.x > kBoxLeft + 3 && p.x < kBoxRight - 3) {
      const double x = (p.x - kBoxLeft) / (kBoxRight - kBoxLeft);
      EXPECT_NEAR(p.y, RowOf(x, 0, 1), 4) << p;
    }
  }
}

TEST(Plots, MarkersAreDrawnAtTheirPositions) {
  CTemporaryFolder folder;
  LinePlot plot = UnitPlot({Line("flat", 0.1, 0.1)});
  plot.vmarkers.push_back({"Nyquist", 0.5});      // second series colour
  plot.hmarkers.push_back({"MTF = 0.75", 0.75});  // third
  const cv::Mat picture = Drawn(folder, plot);
  ASSERT_FALSE(picture.empty());

  const double column = ColumnOf(0.5, 0, 1);
  int verticalRows = 0;
  for (const cv::Point& p : PixelsOf(picture, kRed, 30)) {
    if (std::abs(p.x - column) <= 2) ++verticalRows;
  }
  // Dashed: not the whole height of the box, but much of it.
  EXPECT_GT(verticalRows, 0.3 * (kBoxBottom - kBoxTop));
  EXPECT_LT(verticalRows, 2.5 * (kBoxBottom - kBoxTop));

  const double row = RowOf(0.75, 0, 1);
  int horizontalColumns = 0;
  for (const cv::Point& p : PixelsOf(picture, kGreen, 30)) {
    if (std::abs(p.y - row) <= 2) ++horizontalColumns;
  }
  EXPECT_GT(horizontalColumns, 0.3 * (kBoxRight - kBoxLeft));
}

TEST(Plots, GridLinesCrossTheBox) {
  CTemporaryFolder folder;
  LinePlot plot = UnitPlot({Line("flat", 0.1, 0.1)});
  const cv::Mat picture = Drawn(folder, plot);
  ASSERT_FALSE(picture.empty());
  // Columns inside the box that are grid grey over most of the box's height: the vertical grid
  // lines at the major ticks (at least three between 0 and 1).
  int gridColumns = 0;
  for (int c = static_cast<int>(kBoxLeft) + 5; c < kBoxRight - 5; ++c) {
    int grey = 0;
    for (int r = static_cast<int>(kBoxTop) + 5; r < kBoxBottom - 5; ++r) {
      // Grid lines are thin and anti-aliased: light grey of any shade between them and white.
      const cv::Vec3b v = picture.at<cv::Vec3b>(r, c);
      if (v[0] == v[1] && v[1] == v[2] && v[0] >= kGridGrey[0] - 5 && v[0] < 250) ++grey;
    }
    if (grey > 0.6 * (kBoxBottom - kBoxTop)) ++gridColumns;
  }
  EXPECT_GE(gridColumns, 3);
}

TEST(Plots, LegendTextIsDrawnInAnEmptyCorner) {
  CTemporaryFolder folder;
  // The same plot with a short and a long label: they differ only where the legend is, and the
  // low flat curve leaves the top right corner free for it.
  LinePlot shortLabel = UnitPlot({Line("a", 0.2, 0.2)});
  LinePlot longLabel = shortLabel;
  longLabel.curves[0].label = "a much longer legend label";
  const PlotDifference legend = DrawAndCompare(folder, shortLabel, longLabel);
  ASSERT_FALSE(legend.first.empty());
  ASSERT_FALSE(legend.second.empty());
  ASSERT_GT(legend.changed.size(), 100u);
  const double middleColumn = 0.5 * (kBoxLeft + kBoxRight);
  const double middleRow = 0.5 * (kBoxTop + kBoxBottom);
  for (const cv::Point& p : legend.changed) {
    ASSERT_GT(p.x, middleColumn);
    ASSERT_LT(p.y, middleRow);
  }
  // The legend's line sample is drawn in the curve's colour, in the same corner.
  int sample = 0;
  for (const cv::Point& p : PixelsOf(legend.second, kBlue, 20)) {
    if (p.x > middleColumn && p.y < middleRow) ++sample;
  }
  EXPECT_GT(sample, 10);
}

TEST(Plots, LongLegendStaysInsideTheBox) {
  CTemporaryFolder folder;
  // 30 edges: with labels and without (no legend); the legend is all that differs, and it must
  // lie inside the axes box, above the low curves.
  LinePlot unlabelled = UnitPlot();
  for (int i = 0; i < 30; ++i) unlabelled.curves.push_back(Line("", 0.01 * i, 0.01 * i));
  LinePlot labelled = unlabelled;
  for (int i = 0; i < 30; ++i) labelled.curves[i].label = "edge " + std::to_string(i + 1);
  const PlotDifference legend = DrawAndCompare(folder, unlabelled, labelled);
  ASSERT_FALSE(legend.first.empty());
  ASSERT_FALSE(legend.second.empty());
  ASSERT_GT(legend.changed.size(), 1000u);
  for (const cv::Point& p : legend.changed) {
    ASSERT_GT(p.x, kBoxLeft);
    ASSERT_LT(p.x, kBoxRight);
    ASSERT_GT(p.y, kBoxTop);
    ASSERT_LT(p.y, RowOf(0.35, 0, 1));
  }
}

TEST(Plots, SvgHoldsEveryLabelAsText) {
  CTemporaryFolder folder;
  LinePlot plot = UnitPlot();
  plot.title = "MTF of edge #3";  // '#' is PLplot's escape character
  plot.curves.push_back(Line("edge 3 <left> & right", 1.0, 0.0));
  plot.vmarkers.push_back({"Nyquist", 0.5});
  plot.hmarkers.push_back({"MTF = 0.1", 0.1});
  plot.yLabel = "MTF \xb5m";  // not UTF-8 (Latin-1): drawn with a replacement character
  PlotCurves(plot, folder / "plot.png", folder / "plot.svg");
  const std::string svg = ReadText(folder / "plot.svg");
  ASSERT_NE(svg.find("<svg"), std::string::npos);
  const std::string text = DecodeXmlText(svg);
  for (const char* label : {"MTF of edge #3", "frequency (cycles/pixel)", "MTF \xEF\xBF\xBDm",
                            "edge 3 <left> & right", "Nyquist", "MTF = 0.1"}) {
    EXPECT_NE(text.find(label), std::string::npos) << label;
  }
  // Markup characters of a label are escaped in the file itself.
  EXPECT_EQ(svg.find("<left>"), std::string::npos);
  EXPECT_FALSE(ReadRgb(folder / "plot.png").empty());
}

TEST(Plots, CurvesOfUnequalLengthAreRefusedAndNothingIsWritten) {
  CTemporaryFolder folder;
  LinePlot plot = UnitPlot({{"bad", {0.0, 0.5, 1.0}, {0.0, 1.0}}});
  const std::string path = folder / "plot.png";
  const std::string error = ErrorOf([&] { PlotCurves(plot, path, folder / "plot.svg"); });
  EXPECT_TRUE(StartsWith(error, path + ": ")) << error;
  EXPECT_NE(error.find("bad"), std::string::npos) << error;
  EXPECT_TRUE(folder.Entries().empty());
}

TEST(Plots, InvertedOrInfiniteAxisLimitsAreRefused) {
  CTemporaryFolder folder;
  LinePlot plot = UnitPlot({Line("flat", 0.5, 0.5)});
  plot.xmin = 1.0;
  plot.xmax = 0.0;
  EXPECT_TRUE(
      StartsWith(ErrorOf([&] { PlotCurves(plot, folder / "a.png"); }), folder / "a.png" + ": "));
  plot = UnitPlot();
  plot.ymax = INFINITY;
  EXPECT_TRUE(
      StartsWith(ErrorOf([&] { PlotCurves(plot, folder / "b.png"); }), folder / "b.png" + ": "));
  EXPECT_TRUE(folder.Entries().empty());
}

TEST(Plots, MissingFolderRaisesAnErrorNamingThePath) {
  CTemporaryFolder folder;
  const std::string path = folder / "no-such-folder/plot.png";
  LinePlot plot = UnitPlot({Line("flat", 0.5, 0.5)});
  const std::string error = ErrorOf([&] { PlotCurves(plot, path); });
  EXPECT_TRUE(StartsWith(error, path + ": ")) << error;
  const cv::Mat map(10, 10, CV_32F, cv::Scalar(1));
  EXPECT_TRUE(
      StartsWith(ErrorOf([&] { PlotHistogram(map, 10, NAN, NAN, "t", "x", path); }), path + ": "));
  EXPECT_TRUE(
      StartsWith(ErrorOf([&] { PlotFalseColour(map, NAN, NAN, "t", "DN", path); }), path + ": "));
  // A missing SVG folder is found before the PNG is kept.
  const std::string png = folder / "plot.png";
  const std::string svgError = ErrorOf([&] { PlotCurves(plot, png, path); });
  EXPECT_TRUE(StartsWith(svgError, path + ": ")) << svgError;
  EXPECT_TRUE(folder.Entries().empty());
}

TEST(Plots, NonFinitePointsAreLeftOut) {
  CTemporaryFolder folder;
  LinePlot plot;  // axis limits from the data
  plot.curves.push_back({"gaps", {0.0, 0.5, NAN, 1.0, 2.0}, {1.0, 1.0, 5.0, INFINITY, 1.0}});
  PlotCurves(plot, folder / "plot.png");
  EXPECT_FALSE(ReadRgb(folder / "plot.png").empty());
}

TEST(Plots, HistogramBarsStandOverTheirBins) {
  CTemporaryFolder folder;
  // 600 values of 1.5 and 600 of 3.5 (and NaNs, left out) over [0, 4] in 4 bins: two equal bars
  // over [1, 2] and [3, 4], none over [0, 1] and [2, 3].
  cv::Mat values(40, 30, CV_32F, cv::Scalar(1.5f));
  values.rowRange(20, 40).setTo(3.5f);
  values.at<float>(0, 0) = NAN;
  values.at<float>(39, 29) = NAN;
  PlotHistogram(values, 4, 0.0, 4.0, "Histogram", "value (DN)", folder / "histogram.png");
  const cv::Mat picture = ReadRgb(folder / "histogram.png");
  ASSERT_FALSE(picture.empty());
  EXPECT_EQ(picture.cols, kPlotWidth);
  EXPECT_EQ(picture.rows, kPlotHeight);
  // The highest bar reaches 1 / 1.25 of the box's height.
  const double barTop = RowOf(599.0, 0, 599.0 * 1.25);
  auto barHeightAt = [&](double x) {
    const int column = static_cast<int>(std::lround(ColumnOf(x, 0, 4)));
    int top = -1;
    for (int r = static_cast<int>(kBoxBottom) - 3; r > kBoxTop; --r) {
      if (!Near(picture.at<cv::Vec3b>(r, column), kBlue, 20)) break;
      top = r;
    }
    return top;
  };
  EXPECT_EQ(barHeightAt(0.5), -1);
  EXPECT_EQ(barHeightAt(2.5), -1);
  EXPECT_NEAR(barHeightAt(1.5), barTop, 3);
  EXPECT_NEAR(barHeightAt(3.5), barTop, 3);
}

TEST(Plots, HistogramRangeDefaultsToZeroAndThe999thPercentile) {
  CTemporaryFolder folder;
  // 1 .. 1000: the 99.9th percentile is 999.001, so exactly one value lies above the range.
  cv::Mat values(1, 1005, CV_32F);
  for (int i = 0; i < 1000; ++i) values.at<float>(i) = static_cast<float>(i + 1);
  for (int i = 1000; i < 1005; ++i) values.at<float>(i) = NAN;
  PlotHistogram(values, 50, NAN, NAN, "Histogram", "noise (DN)", folder / "h.png",
                folder / "h.svg");
  const std::string text = DecodeXmlText(ReadText(folder / "h.svg"));
  EXPECT_NE(text.find("1000 values, 1 above the range"), std::string::npos);
  EXPECT_NE(text.find("noise (DN)"), std::string::npos);
  EXPECT_NE(text.find("pixels"), std::string::npos);

  // -5 .. 4: with a negative value the range starts at the smallest one, so none lies below it.
  cv::Mat signedValues(1, 10, CV_32F);
  for (int i = 0; i < 10; ++i) signedValues.at<float>(i) = static_cast<float>(i - 5);
  PlotHistogram(signedValues, 9, NAN, NAN, "Histogram", "offset (DN)", folder / "s.png",
                folder / "s.svg");
  EXPECT_NE(DecodeXmlText(ReadText(folder / "s.svg")).find("10 values, 1 above the range"),
            std::string::npos);
}

TEST(Plots, HistogramRefusesBadInput) {
  CTemporaryFolder folder;
  const std::string path = folder / "h.png";
  const cv::Mat values(10, 10, CV_32F, cv::Scalar(2));
  EXPECT_TRUE(StartsWith(ErrorOf([&] { PlotHistogram(values, 0, NAN, NAN, "t", "x", path); }),
                         path + ": "));
  EXPECT_TRUE(StartsWith(ErrorOf([&] { PlotHistogram(values, 10, 3.0, 1.0, "t", "x", path); }),
                         path + ": "));
  const cv::Mat nans(10, 10, CV_32F, cv::Scalar(NAN));
  EXPECT_TRUE(
      StartsWith(ErrorOf([&] { PlotHistogram(nans, 10, NAN, NAN, "t", "x", path); }), path + ": "));
  EXPECT_TRUE(StartsWith(ErrorOf([&] { PlotHistogram(cv::Mat(), 10, NAN, NAN, "t", "x", path); }),
                         path + ": "));
  const cv::Mat colour(10, 10, CV_32FC3, cv::Scalar(1, 2, 3));
  EXPECT_TRUE(StartsWith(ErrorOf([&] { PlotHistogram(colour, 10, NAN, NAN, "t", "x", path); }),
                         path + ": "));
  EXPECT_TRUE(folder.Entries().empty());
}

TEST(Plots, FalseColourMapsLowToDarkAndHighToBright) {
  CTemporaryFolder folder;
  // A ramp from 0 on the left to 1 on the right; the left quarter NaN stays white.
  cv::Mat map(300, 400, CV_32F);
  for (int c = 0; c < map.cols; ++c) map.col(c).setTo(c / 399.0);
  map.colRange(0, 100).setTo(NAN);
  PlotFalseColour(map, 0.25, 1.0, "Noise map", "noise (DN)", folder / "map.png");
  const cv::Mat picture = ReadRgb(folder / "map.png");
  ASSERT_FALSE(picture.empty());
  EXPECT_EQ(picture.cols, kPlotWidth);
  EXPECT_EQ(picture.rows, kPlotHeight);
  // Viridis runs from dark violet to yellow.
  const cv::Vec3b low(68, 1, 84), high(253, 231, 37);
  const std::vector<cv::Point> dark = PixelsOf(picture, low, 30);
  const std::vector<cv::Point> bright = PixelsOf(picture, high, 30);
  ASSERT_GT(dark.size(), 200u);
  ASSERT_GT(bright.size(), 200u);
  // In the picture, the darkest cells are at the left edge of the non-NaN part and the brightest
  // at the right edge of the map; the colour bar (right of the map) holds both colours too.
  double brightMean = 0;
  for (const cv::Point& p : bright) brightMean += p.x;
  brightMean /= static_cast<double>(bright.size());
  int darkInMap = 0, darkInBar = 0;
  double darkInMapMean = 0;
  for (const cv::Point& p : dark) {
    if (p.x < 0.75 * kPlotWidth) {
      ++darkInMap;
      darkInMapMean += p.x;
    } else {
      ++darkInBar;
    }
  }
  ASSERT_GT(darkInMap, 100);
  EXPECT_GT(darkInBar, 20);
  darkInMapMean /= darkInMap;
  EXPECT_LT(darkInMapMean + 100, brightMean);
  // Left of the darkest cells, inside the map, the NaN quarter stays white.
  int minDark = kPlotWidth;
  for (const cv::Point& p : dark) minDark = std::min(minDark, p.x);
  const int row = static_cast<int>(kPlotHeight / 2);
  int white = 0;
  for (int c = minDark - 60; c < minDark - 10; ++c) {
    if (picture.at<cv::Vec3b>(row, c) == cv::Vec3b(255, 255, 255)) ++white;
  }
  EXPECT_EQ(white, 50);
}

TEST(Plots, LargeFalseColourMapIsShownWhole) {
  CTemporaryFolder folder;
  cv::Mat map(2048, 2048, CV_32F, cv::Scalar(0.0f));
  map(cv::Rect(1024, 1024, 1024, 1024)).setTo(1.0f);  // bottom right quadrant high
  PlotFalseColour(map, 0.0, 1.0, "Map", "DN", folder / "map.png");
  const cv::Mat picture = ReadRgb(folder / "map.png");
  ASSERT_FALSE(picture.empty());
  const std::vector<cv::Point> bright = PixelsOf(picture, cv::Vec3b(253, 231, 37), 30);
  std::vector<cv::Point> dark;
  for (const cv::Point& p : PixelsOf(picture, cv::Vec3b(68, 1, 84), 30)) {
    if (p.x < 0.75 * kPlotWidth) dark.push_back(p);
  }
  ASSERT_GT(bright.size(), 1000u);
  ASSERT_GT(dark.size(), 3000u);  // three quadrants dark against one bright
  EXPECT_GT(dark.size(), 2 * bright.size());
  // The bright quadrant is the bottom right one: image rows run downwards.
  cv::Point2d brightMean, darkMean;
  for (const cv::Point& p : bright)
    brightMean += cv::Point2d(p) / static_cast<double>(bright.size());
  for (const cv::Point& p : dark) darkMean += cv::Point2d(p) / static_cast<double>(dark.size());
  EXPECT_GT(brightMean.x, darkMean.x + 50);
  EXPECT_GT(brightMean.y, darkMean.y + 50);
}

TEST(Plots, ConcurrentPlotsEqualThePlotDrawnAlone) {
  CTemporaryFolder folder;
  LinePlot plot = UnitPlot({Line("rising", 0.0, 1.0)});
  plot.vmarkers.push_back({"half", 0.5});
  PlotCurves(plot, folder / "alone.png");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      PlotCurves(plot, folder / ("thread" + std::to_string(t) + ".png"),
                 folder / ("thread" + std::to_string(t) + ".svg"));
    });
  }
  for (std::thread& thread : threads) thread.join();
  const cv::Mat alone = ReadRgb(folder / "alone.png");
  ASSERT_FALSE(alone.empty());
  for (int t = 0; t < 4; ++t) {
    const cv::Mat picture = ReadRgb(folder / ("thread" + std::to_string(t) + ".png"));
    ASSERT_EQ(picture.size(), alone.size());
    EXPECT_EQ(cv::norm(picture, alone, cv::NORM_INF), 0.0) << t;
  }
}

TEST(Plots, PlottingPrintsNothing) {
  // The tool prints its JSON on standard output; a plot must add nothing to it or to the errors,
  // whatever its labels hold.
  CTemporaryFolder folder;
  LinePlot plot = UnitPlot();
  plot.title = "edge \xff\xfe of chart \xc3";
  plot.curves.push_back(Line("MTF \xe2\x82", 1.0, 0.0));
  plot.vmarkers.push_back({"Nyquist #", 0.5});
  cv::Mat map(20, 30, CV_32F, cv::Scalar(2.0f));
  map.at<float>(3, 4) = NAN;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  PlotCurves(plot, folder / "curves.png", folder / "curves.svg");
  PlotHistogram(map, 16, NAN, NAN, "noise \xff", "DN", folder / "h.png", folder / "h.svg");
  PlotFalseColour(map, NAN, NAN, "map \xff", "DN \xff", folder / "map.png");
  const std::string out = testing::internal::GetCapturedStdout();
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "");
  EXPECT_EQ(folder.Entries().size(), 5u);
}
