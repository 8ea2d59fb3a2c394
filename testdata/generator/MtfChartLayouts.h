// The layouts of the MTF charts "FTM.tif", "FTM2.tif" and "TestEntreeFTM.tif": five tilted square
// targets each (dark frame, lighter centre) and the distractors that target detection must
// reject. Shared by the MtfCharts data set and the tests that check detection against the truth.
#pragma once

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "MtfChart.h"

namespace datagen {

// Blur (Gaussian PSF sigma, pixels) of the charts. FTM's and TestEntreeFTM's were found once by
// bisection on the target measurement's mean efficiency over all measured edges of the rendered
// chart (noise and quantisation included) and frozen: FTM aims at 47.5 % (sigma 1.41 measured
// 47.505 % over 20 edges), TestEntreeFTM at 37.5 % (sigma 1.8141 measured 37.496 %). Below 0.001
// px the mean efficiency jitters by about 0.1 % (the edge positions move against the pixel grid
// and the profile bins), so more digits buy nothing. FTM2's blur is a free choice (about 55 %).
constexpr double kFtmSigma = 1.41;
constexpr double kFtm2Sigma = 1.2;
constexpr double kTestEntreeSigma = 1.8141;

namespace chart_marks {

// A letter of a stroke font drawn with touching (never overlapping) rectangles, so that the
// painted letter is exactly the sum of its strokes. Cell: width w, height h, stroke t; (x, y) is
// the top-left corner of the cell.
inline void Letter(std::vector<ChartShape>& shapes, char letter, double x, double y, double w,
                   double h, double t, double delta) {
  auto box = [&](double x0, double y0, double x1, double y1) {
    shapes.push_back(
        RectangleShape({0.5 * (x0 + x1), 0.5 * (y0 + y1)}, x1 - x0, y1 - y0, 0.0, delta));
  };
  const double mid = y + 0.5 * (h - t);
  switch (letter) {
    case 'T':
      box(x, y, x + w, y + t);
      box(x + 0.5 * (w - t), y + t, x + 0.5 * (w + t), y + h);
      break;
    case 'F':
      box(x, y, x + t, y + h);
      box(x + t, y, x + w, y + t);
      box(x + t, mid, x + 0.75 * w, mid + t);
      break;
    case 'E':
      box(x, y, x + t, y + h);
      box(x + t, y, x + w, y + t);
      box(x + t, mid, x + 0.75 * w, mid + t);
      box(x + t, y + h - t, x + w, y + h);
      break;
    case 'L':
      box(x, y, x + t, y + h);
      box(x + t, y + h - t, x + w, y + h);
      break;
    case 'H':
      box(x, y, x + t, y + h);
      box(x + w - t, y, x + w, y + h);
      box(x + t, mid, x + w - t, mid + t);
      break;
    case 'I':
    case '1':
      box(x + 0.5 * (w - t), y, x + 0.5 * (w + t), y + h);
      break;
    case '7':
      box(x, y, x + w, y + t);
      // The slanted stroke touches the bar along its lower side.
      shapes.push_back(PolygonShape(
          {{x + w - t, y + t}, {x + w, y + t}, {x + 0.35 * w + t, y + h}, {x + 0.35 * w, y + h}},
          delta));
      break;
    case '2':
      box(x, y, x + w, y + t);
      box(x + w - t, y + t, x + w, mid);
      box(x, mid, x + w, mid + t);
      box(x, mid + t, x + t, y + h - t);
      box(x, y + h - t, x + w, y + h);
      break;
    default:
      break;
  }
}

inline void Text(std::vector<ChartShape>& shapes, const std::string& text, double x, double y,
                 double w, double h, double t, double delta) {
  for (const char c : text) {
    Letter(shapes, c, x, y, w, h, t, delta);
    x += w + 0.6 * w;
  }
}

}  // namespace chart_marks

// How a rendered chart (levels 0 .. 1) becomes digital numbers.
struct ChartQuantisation {
  int depth = CV_8U;
  // Level 0 (target frame) and level 1 (background) in digital numbers.
  double black = 30.0;
  double white = 220.0;
  // Standard deviation of the additive Gaussian noise, DN.
  double noise = 0.7;
  std::uint64_t seed = 1;
};

inline ChartQuantisation FtmQuantisation() {
  ChartQuantisation q;
  q.seed = 5101;
  return q;
}

inline ChartQuantisation Ftm2Quantisation() {
  ChartQuantisation q;
  q.depth = CV_16U;
  q.black = 7000.0;
  q.white = 52000.0;
  q.noise = 120.0;
  q.seed = 5102;
  return q;
}

inline ChartQuantisation TestEntreeQuantisation() {
  ChartQuantisation q;
  q.seed = 5103;
  return q;
}

// The chart as the data set writes it: rendered, scaled to DN, noise added, rounded and
// saturated to the depth.
inline cv::Mat RenderQuantisedChart(const ChartLayout& layout, double sigma,
                                    const ChartQuantisation& q) {
  cv::Mat image = RenderChart(layout, sigma);
  image = q.black + (q.white - q.black) * image;
  AddNoise(image, q.noise, q.seed);
  cv::Mat out;
  image.convertTo(out, q.depth);
  return out;
}

// A distractor of a chart: its shapes and the note the truth file gives it.
struct Distractor {
  std::vector<ChartShape> shapes;
  std::string note;
};

namespace distractor_notes {

// Numbers as the notes print them (the stream's default format: 95, -3, 0.4).
inline std::string Number(double v) {
  std::ostringstream s;
  s << v;
  return s.str();
}

inline std::string Point(cv::Point2d p) { return "(" + Number(p.x) + ", " + Number(p.y) + ")"; }

}  // namespace distractor_notes

inline Distractor Disc(cv::Point2d centre, double radius, double delta) {
  using namespace distractor_notes;
  return {{DiscShape(centre, radius, delta)},
          "disc centre " + Point(centre) + " radius " + Number(radius)};
}

inline Distractor Rectangle(cv::Point2d centre, double width, double height, double turnDegrees,
                            double delta) {
  using namespace distractor_notes;
  return {{RectangleShape(centre, width, height, turnDegrees, delta)},
          "rectangle " + Number(width) + " x " + Number(height) + " (aspect " +
              Number(std::min(width, height) / std::max(width, height)) + ") centre " +
              Point(centre) + " turned " + Number(turnDegrees) + " degrees"};
}

inline Distractor Square(cv::Point2d centre, double side, double turnDegrees, double delta) {
  using namespace distractor_notes;
  return {{RectangleShape(centre, side, side, turnDegrees, delta)},
          "square side " + Number(side) + " (area " + Number(side * side) + ") centre " +
              Point(centre) + " turned " + Number(turnDegrees) + " degrees"};
}

inline Distractor Triangle(const std::vector<cv::Point2d>& corners, double delta) {
  using namespace distractor_notes;
  std::string note = "triangle";
  for (const cv::Point2d& corner : corners) note += " " + Point(corner);
  return {{PolygonShape(corners, delta)}, note};
}

// Letters of the stroke font in cells w x h with stroke t, from the top-left corner at.
inline Distractor Marks(const std::string& text, cv::Point2d at, double w, double h, double t,
                        double delta) {
  using namespace distractor_notes;
  Distractor d;
  chart_marks::Text(d.shapes, text, at.x, at.y, w, h, t, delta);
  d.note = "marks " + text + ", cells " + Number(w) + " x " + Number(h) + ", stroke " + Number(t) +
           ", from " + Point(at);
  return d;
}

// Small captions in one cell size, with one note for all of them.
inline Distractor Captions(const std::vector<std::pair<std::string, cv::Point2d>>& captions,
                           double w, double h, double t, double delta) {
  using namespace distractor_notes;
  Distractor d;
  d.note = captions.size() > 1 ? "captions " : "caption ";
  for (std::size_t i = 0; i < captions.size(); ++i) {
    chart_marks::Text(d.shapes, captions[i].first, captions[i].second.x, captions[i].second.y, w, h,
                      t, delta);
    d.note += (i > 0 ? " and " : "") + captions[i].first + " at " + Point(captions[i].second);
  }
  d.note += ", cells " + Number(w) + " x " + Number(h) + ", stroke " + Number(t);
  return d;
}

// A layout of the given size with its targets, levels as fractions of the full scale: background
// 1, target frames 0, target centres at the given level.
inline ChartLayout TargetLayout(int cols, int rows, double centre,
                                std::vector<ChartTarget> targets) {
  ChartLayout l;
  l.cols = cols;
  l.rows = rows;
  l.background = 1.0;
  l.frame = 0.0;
  l.centre = centre;
  l.targets = std::move(targets);
  return l;
}

// Adds the distractors' shapes and notes to the layout, in order.
inline void AddDistractors(ChartLayout& layout, const std::vector<Distractor>& distractors) {
  for (const Distractor& d : distractors) {
    layout.shapes.insert(layout.shapes.end(), d.shapes.begin(), d.shapes.end());
    layout.notes.push_back(d.note);
  }
}

// "FTM.tif": 2048 x 1536.
inline ChartLayout FtmLayout() {
  ChartLayout l = TargetLayout(2048, 1536, 0.55,
                               {{{430, 400}, 300, 3.0, 0.25},
                                {{1040, 390}, 240, -6.0, 0.25},
                                {{1630, 430}, 380, 8.0, 0.25},
                                {{620, 1110}, 360, -4.0, 0.25},
                                {{1500, 1130}, 260, 9.5, 0.25}});
  AddDistractors(l, {Disc({1060, 820}, 95, -0.85), Rectangle({1750, 820}, 300, 120, 4.0, -0.85),
                     Square({200, 800}, 26, 5.0, -0.85),
                     Triangle({{100, 1300}, {270, 1300}, {185, 1150}}, -0.85),
                     Marks("T7F", {960, 1420}, 40, 70, 9, -0.85),
                     Captions({{"FTE 1", {60, 40}}, {"HIL2", {1800, 1480}}}, 12, 21, 3, -0.85)});
  return l;
}

// "TestEntreeFTM.tif": FTM's layout, blurred more.
inline ChartLayout TestEntreeLayout() { return FtmLayout(); }

// "FTM2.tif": 2000 x 1500, another arrangement (written as 16-bit).
inline ChartLayout Ftm2Layout() {
  ChartLayout l = TargetLayout(2000, 1500, 0.47,
                               {{{380, 1100}, 280, -3.0, 0.25},
                                {{1000, 1120}, 340, 5.0, 0.25},
                                {{1600, 1080}, 220, -8.0, 0.25},
                                {{520, 420}, 240, 7.0, 0.25},
                                {{1350, 430}, 400, -2.5, 0.25}});
  AddDistractors(l, {Disc({1800, 420}, 110, -0.8), Rectangle({150, 420}, 120, 300, -3.0, -0.8),
                     Square({880, 720}, 28, 6.0, -0.8),
                     Triangle({{1720, 1400}, {1900, 1400}, {1810, 1300}}, -0.8),
                     Marks("7TF", {250, 1400}, 40, 70, 9, -0.8),
                     Captions({{"FTE 2", {40, 40}}}, 12, 21, 3, -0.8)});
  return l;
}

}  // namespace datagen
