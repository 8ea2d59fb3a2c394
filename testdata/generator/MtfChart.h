// Analytic MTF chart images: a scene of rectangles, convex polygons and discs on a uniform
// background, blurred by a Gaussian point spread function of width sigma and averaged over each
// square pixel. Used by the MtfCharts data set, the target-detection tests and the calibration of
// the charts' blur.
//
// The scene is background + sum of delta_k * 1[shape_k]; shapes either do not overlap or one lies
// wholly inside another (a target's lighter centre inside its dark frame), so the sum is the
// painted chart. Blurring is linear, so the blurred chart is the same sum of blurred indicators:
// - rectangle: exact, the Gaussian separates along the rectangle's own axes:
//   [Phi((u + a) / s) - Phi((u - a) / s)] [Phi((v + b) / s) - Phi((v - b) / s)];
// - convex polygon: the product of the half-plane terms Phi(d_j / s), exact farther than a few
//   sigma from any corner that is not a right angle (only distractors have such corners);
// - disc: Phi((R - r) / s), the straight-edge profile (curvature neglected, R >> s).
// Each pixel value is the mean of the blurred chart over the pixel [x - 0.5, x + 0.5] x
// [y - 0.5, y + 0.5] (pixel centres at integer coordinates, as OpenCV's contours use them), taken
// with a 6 x 6 Gauss-Legendre rule; pixels farther than 6 sigma from every edge are exactly inside
// or outside.
#pragma once

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "Random.h"

namespace datagen {

struct ChartShape {
  enum class Kind { Rectangle, Polygon, Disc };
  Kind kind = Kind::Rectangle;
  // Rectangle: centre, half sizes along its own axes, and the turn of its first axis from the
  // image x axis towards the image y axis, degrees. Disc: centre and radius.
  cv::Point2d centre;
  double halfWidth = 0.0;
  double halfHeight = 0.0;
  double angleDegrees = 0.0;
  double radius = 0.0;
  // Polygon: convex, vertices in either order.
  std::vector<cv::Point2d> vertices;
  // Level change inside the shape.
  double delta = 0.0;
};

// A target: a dark square frame of side `side` whose centre, a square of side
// innerFraction * side, is lighter; both borders are squares of the same tilt.
struct ChartTarget {
  cv::Point2d centre;
  double side = 300.0;
  double tiltDegrees = 5.0;
  double innerFraction = 0.25;
};

struct ChartLayout {
  int rows = 1536, cols = 2048;
  double background = 1.0;
  // Grey levels of the targets' frames and centres.
  double frame = 0.0;
  double centre = 0.5;
  std::vector<ChartTarget> targets;
  // Everything else: distractors and marks, with their own deltas.
  std::vector<ChartShape> shapes;
  std::vector<std::string> notes;
};

inline ChartShape RectangleShape(cv::Point2d centre, double width, double height,
                                 double angleDegrees, double delta) {
  ChartShape s;
  s.kind = ChartShape::Kind::Rectangle;
  s.centre = centre;
  s.halfWidth = 0.5 * width;
  s.halfHeight = 0.5 * height;
  s.angleDegrees = angleDegrees;
  s.delta = delta;
  return s;
}

inline ChartShape PolygonShape(std::vector<cv::Point2d> vertices, double delta) {
  ChartShape s;
  s.kind = ChartShape::Kind::Polygon;
  s.vertices = std::move(vertices);
  s.delta = delta;
  return s;
}

inline ChartShape DiscShape(cv::Point2d centre, double radius, double delta) {
  ChartShape s;
  s.kind = ChartShape::Kind::Disc;
  s.centre = centre;
  s.radius = radius;
  s.delta = delta;
  return s;
}

// Corners of a square target border (side `side`), starting at the corner that is top-left
// before the turn, in the order top-left, top-right, bottom-right, bottom-left.
inline std::vector<cv::Point2d> SquareCorners(cv::Point2d centre, double side, double tiltDegrees) {
  const double t = tiltDegrees * CV_PI / 180.0;
  const double c = std::cos(t), s = std::sin(t), h = 0.5 * side;
  std::vector<cv::Point2d> corners;
  for (const cv::Point2d q :
       {cv::Point2d(-h, -h), cv::Point2d(h, -h), cv::Point2d(h, h), cv::Point2d(-h, h)}) {
    corners.emplace_back(centre.x + q.x * c - q.y * s, centre.y + q.x * s + q.y * c);
  }
  return corners;
}

// The shapes of the whole chart, targets first (frame, then centre).
inline std::vector<ChartShape> ChartShapes(const ChartLayout& layout) {
  std::vector<ChartShape> shapes;
  for (const ChartTarget& t : layout.targets) {
    shapes.push_back(
        RectangleShape(t.centre, t.side, t.side, t.tiltDegrees, layout.frame - layout.background));
    shapes.push_back(RectangleShape(t.centre, t.side * t.innerFraction, t.side * t.innerFraction,
                                    t.tiltDegrees, layout.centre - layout.frame));
  }
  shapes.insert(shapes.end(), layout.shapes.begin(), layout.shapes.end());
  return shapes;
}

namespace chart_detail {

inline double Phi(double z) { return 0.5 * std::erfc(-z * 0.7071067811865476); }

// A shape prepared for evaluation: its frame, its bounding box and the half-planes of a polygon.
struct Prepared {
  ChartShape shape;
  double cosA = 1.0, sinA = 0.0;
  cv::Point2d normal[16];
  double offset[16] = {};
  int edges = 0;
  double minX = 0, maxX = 0, minY = 0, maxY = 0;
};

inline Prepared Prepare(const ChartShape& shape, double margin) {
  Prepared p;
  p.shape = shape;
  if (shape.kind == ChartShape::Kind::Rectangle) {
    const double a = shape.angleDegrees * CV_PI / 180.0;
    p.cosA = std::cos(a);
    p.sinA = std::sin(a);
    const double ex = std::fabs(p.cosA) * shape.halfWidth + std::fabs(p.sinA) * shape.halfHeight;
    const double ey = std::fabs(p.sinA) * shape.halfWidth + std::fabs(p.cosA) * shape.halfHeight;
    p.minX = shape.centre.x - ex;
    p.maxX = shape.centre.x + ex;
    p.minY = shape.centre.y - ey;
    p.maxY = shape.centre.y + ey;
  } else if (shape.kind == ChartShape::Kind::Disc) {
    p.minX = shape.centre.x - shape.radius;
    p.maxX = shape.centre.x + shape.radius;
    p.minY = shape.centre.y - shape.radius;
    p.maxY = shape.centre.y + shape.radius;
  } else {
    const std::vector<cv::Point2d>& v = shape.vertices;
    CV_Assert(v.size() >= 3 && v.size() <= 16);
    double area2 = 0.0;
    for (std::size_t i = 0; i < v.size(); ++i) {
      const cv::Point2d& a = v[i];
      const cv::Point2d& b = v[(i + 1) % v.size()];
      area2 += a.x * b.y - a.y * b.x;
    }
    const double sign = area2 > 0 ? 1.0 : -1.0;
    p.edges = static_cast<int>(v.size());
    p.minX = p.maxX = v[0].x;
    p.minY = p.maxY = v[0].y;
    for (std::size_t i = 0; i < v.size(); ++i) {
      const cv::Point2d& a = v[i];
      const cv::Point2d& b = v[(i + 1) % v.size()];
      const cv::Point2d d = b - a;
      const double length = std::hypot(d.x, d.y);
      // Inward unit normal: left of the edge for counter-clockwise (positive area) order.
      p.normal[i] = cv::Point2d(-d.y, d.x) * (sign / length);
      p.offset[i] = p.normal[i].dot(a);
      p.minX = std::min(p.minX, a.x);
      p.maxX = std::max(p.maxX, a.x);
      p.minY = std::min(p.minY, a.y);
      p.maxY = std::max(p.maxY, a.y);
    }
  }
  p.minX -= margin;
  p.maxX += margin;
  p.minY -= margin;
  p.maxY += margin;
  return p;
}

// Blurred indicator of the shape at (x, y).
inline double Blurred(const Prepared& p, double x, double y, double sigma) {
  const ChartShape& s = p.shape;
  switch (s.kind) {
    case ChartShape::Kind::Rectangle: {
      const double dx = x - s.centre.x, dy = y - s.centre.y;
      const double u = dx * p.cosA + dy * p.sinA;
      const double v = -dx * p.sinA + dy * p.cosA;
      return (Phi((u + s.halfWidth) / sigma) - Phi((u - s.halfWidth) / sigma)) *
             (Phi((v + s.halfHeight) / sigma) - Phi((v - s.halfHeight) / sigma));
    }
    case ChartShape::Kind::Disc: {
      const double r = std::hypot(x - s.centre.x, y - s.centre.y);
      return Phi((s.radius - r) / sigma);
    }
    case ChartShape::Kind::Polygon: {
      double value = 1.0;
      for (int j = 0; j < p.edges; ++j) {
        value *= Phi((p.normal[j].x * x + p.normal[j].y * y - p.offset[j]) / sigma);
      }
      return value;
    }
  }
  return 0.0;
}

// -1: the whole pixel is farther than the margin outside, +1: inside, 0: near an edge.
inline int Classify(const Prepared& p, double x, double y, double margin) {
  const ChartShape& s = p.shape;
  switch (s.kind) {
    case ChartShape::Kind::Rectangle: {
      const double dx = x - s.centre.x, dy = y - s.centre.y;
      const double u = std::fabs(dx * p.cosA + dy * p.sinA);
      const double v = std::fabs(-dx * p.sinA + dy * p.cosA);
      if (u >= s.halfWidth + margin || v >= s.halfHeight + margin) return -1;
      if (u <= s.halfWidth - margin && v <= s.halfHeight - margin) return 1;
      return 0;
    }
    case ChartShape::Kind::Disc: {
      const double d = s.radius - std::hypot(x - s.centre.x, y - s.centre.y);
      return d >= margin ? 1 : (d <= -margin ? -1 : 0);
    }
    case ChartShape::Kind::Polygon: {
      double nearest = 1e300;
      for (int j = 0; j < p.edges; ++j) {
        nearest = std::min(nearest, p.normal[j].x * x + p.normal[j].y * y - p.offset[j]);
      }
      return nearest >= margin ? 1 : (nearest <= -margin ? -1 : 0);
    }
  }
  return 0;
}

}  // namespace chart_detail

// The blurred, pixel-averaged chart as CV_64F (no noise).
inline cv::Mat RenderChart(const ChartLayout& layout, double sigma) {
  using namespace chart_detail;
  static const double nodes[6] = {-0.9324695142031521, -0.6612093864662645, -0.2386191860831969,
                                  0.2386191860831969,  0.6612093864662645,  0.9324695142031521};
  static const double weights[6] = {0.1713244923791704, 0.3607615730481386, 0.4679139345726910,
                                    0.4679139345726910, 0.3607615730481386, 0.1713244923791704};
  // Beyond 6 sigma (plus the pixel's half diagonal) Phi differs from 0 or 1 by less than 1e-9.
  const double margin = 6.0 * sigma + 0.75;
  std::vector<Prepared> prepared;
  for (const ChartShape& shape : ChartShapes(layout)) prepared.push_back(Prepare(shape, margin));

  cv::Mat image(layout.rows, layout.cols, CV_64F, cv::Scalar(layout.background));
  for (const Prepared& p : prepared) {
    const int x0 = std::max(0, static_cast<int>(std::floor(p.minX)));
    const int x1 = std::min(layout.cols - 1, static_cast<int>(std::ceil(p.maxX)));
    const int y0 = std::max(0, static_cast<int>(std::floor(p.minY)));
    const int y1 = std::min(layout.rows - 1, static_cast<int>(std::ceil(p.maxY)));
    for (int y = y0; y <= y1; ++y) {
      double* row = image.ptr<double>(y);
      for (int x = x0; x <= x1; ++x) {
        const int where = Classify(p, x, y, margin);
        if (where < 0) continue;
        if (where > 0) {
          row[x] += p.shape.delta;
          continue;
        }
        double mean = 0.0;
        for (int i = 0; i < 6; ++i) {
          for (int j = 0; j < 6; ++j) {
            mean += 0.25 * weights[i] * weights[j] *
                    Blurred(p, x + 0.5 * nodes[j], y + 0.5 * nodes[i], sigma);
          }
        }
        row[x] += p.shape.delta * mean;
      }
    }
  }
  return image;
}

// Adds Gaussian noise of the given standard deviation (row by row, datagen::Random::Normal).
inline void AddNoise(cv::Mat& image, double sigma, std::uint64_t seed) {
  Random random(seed);
  for (int y = 0; y < image.rows; ++y) {
    double* row = image.ptr<double>(y);
    for (int x = 0; x < image.cols; ++x) row[x] += sigma * random.Normal();
  }
}

}  // namespace datagen
