// Analytic slanted-edge images: an ideal step blurred by a Gaussian point spread function of
// width sigma and integrated over each square pixel. Used by the MtfEdges data set and by the MTF
// accuracy test, whose truth is MTF(f) = exp(-2 pi^2 sigma^2 f^2) |sin(pi f) / (pi f)| in cycles
// per pixel along the edge normal.
#pragma once

#include <cmath>
#include <opencv2/core.hpp>

#include "Random.h"

namespace datagen {

struct SlantedEdge {
  int rows = 256, cols = 128;
  // Tilt of the edge line from the columns direction (vertical), degrees.
  double angleDegrees = 5.0;
  // Gaussian PSF standard deviation, pixels.
  double sigma = 1.0;
  double dark = 0.0, bright = 1.0;
  // true: dark on the left (top for a horizontal edge), bright on the other side.
  bool darkFirst = true;
  // true: the edge runs along the rows (near-horizontal); the picture is the transpose of the
  // vertical one with the same parameters (cols rows by rows columns).
  bool horizontal = false;
  // Offset of the edge line from the image centre across the edge, pixels.
  double offset = 0.0;
  // Standard deviation of the additive Gaussian noise; 0 for none.
  double noise = 0.0;
  std::uint64_t seed = 1;
};

// Gauss-Legendre nodes and weights on [-1, 1], 8 points.
inline const double* GaussLegendreNodes8() {
  static const double nodes[8] = {-0.9602898564975363, -0.7966664774136267, -0.5255324099163290,
                                  -0.1834346424956498, 0.1834346424956498,  0.5255324099163290,
                                  0.7966664774136267,  0.9602898564975363};
  return nodes;
}
inline const double* GaussLegendreWeights8() {
  static const double weights[8] = {0.1012285362903763, 0.2223810344533745, 0.3137066661229856,
                                    0.3626837833783620, 0.3626837833783620, 0.3137066661229856,
                                    0.2223810344533745, 0.1012285362903763};
  return weights;
}

// Integral of the standard normal CDF: G(z) = z Phi(z) + phi(z), so that the integral of Phi over
// [z0, z1] is G(z1) - G(z0).
inline double NormalCdfIntegral(double z) {
  const double phi = 0.3989422804014327 * std::exp(-0.5 * z * z);
  const double cdf = 0.5 * std::erfc(-z / std::sqrt(2.0));
  return z * cdf + phi;
}

// Mean over the pixel (row r, column c; the pixel covers [c - 0.5, c + 0.5] x [r - 0.5, r + 0.5])
// of the blurred step Phi(d / sigma), d the signed distance to the edge line through (x0, y0)
// tilted by theta from the vertical, positive to the right. Across the columns the integral is
// closed-form; down the rows, where the value changes only by the tilt, an 8-point Gauss-Legendre
// rule averages the sub-rows.
inline double PixelStepFraction(int r, int c, double x0, double y0, double theta, double sigma) {
  const double cosT = std::cos(theta);
  const double tanT = std::tan(theta);
  const double* nodes = GaussLegendreNodes8();
  const double* weights = GaussLegendreWeights8();
  double mean = 0.0;
  for (int k = 0; k < 8; ++k) {
    const double y = r + 0.5 * nodes[k];
    const double xe = x0 + (y - y0) * tanT;
    // d(x) = (x - xe) cos(theta); z = d / sigma is linear in x with slope cos(theta) / sigma.
    const double z0 = (c - 0.5 - xe) * cosT / sigma;
    const double z1 = (c + 0.5 - xe) * cosT / sigma;
    const double across = (NormalCdfIntegral(z1) - NormalCdfIntegral(z0)) * sigma / cosT;
    mean += 0.5 * weights[k] * across;
  }
  return mean;
}

// The edge as CV_64F, noise included.
inline cv::Mat RenderSlantedEdge(const SlantedEdge& edge) {
  const int rows = edge.rows;
  const int cols = edge.cols;
  cv::Mat vertical(rows, cols, CV_64F);
  const double theta = edge.angleDegrees * CV_PI / 180.0;
  const double x0 = 0.5 * (cols - 1) + edge.offset;
  const double y0 = 0.5 * (rows - 1);
  Random random(edge.seed);
  const double first = edge.darkFirst ? edge.dark : edge.bright;
  const double second = edge.darkFirst ? edge.bright : edge.dark;
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) {
      const double fraction = PixelStepFraction(r, c, x0, y0, theta, edge.sigma);
      double value = first + (second - first) * fraction;
      if (edge.noise > 0.0) value += edge.noise * random.Normal();
      vertical.at<double>(r, c) = value;
    }
  }
  if (!edge.horizontal) return vertical;
  cv::Mat transposed;
  cv::transpose(vertical, transposed);
  return transposed;
}

// The image (CV_64F) plus Gaussian noise of standard deviation `deviation`, drawn pixel by pixel in
// row-major order from Random(seed), as RenderSlantedEdge draws its own: a noise-free rendering can
// be reused for many noise draws.
inline cv::Mat AddGaussianNoise(const cv::Mat& clean, double deviation, std::uint64_t seed) {
  Random random(seed);
  cv::Mat noisy(clean.size(), CV_64F);
  for (int r = 0; r < clean.rows; ++r) {
    const double* in = clean.ptr<double>(r);
    double* out = noisy.ptr<double>(r);
    for (int c = 0; c < clean.cols; ++c) out[c] = in[c] + deviation * random.Normal();
  }
  return noisy;
}

// The edge quantised to 16-bit unsigned sensor values (rounded, saturated).
inline cv::Mat RenderSlantedEdge16U(const SlantedEdge& edge) {
  cv::Mat image;
  RenderSlantedEdge(edge).convertTo(image, CV_16U);
  return image;
}

// The true MTF of the model at f cycles per pixel.
inline double SlantedEdgeTrueMtf(double sigma, double f) {
  const double blur = std::exp(-2.0 * CV_PI * CV_PI * sigma * sigma * f * f);
  const double aperture = f == 0.0 ? 1.0 : std::fabs(std::sin(CV_PI * f) / (CV_PI * f));
  return blur * aperture;
}

// The lowest frequency at which the true MTF falls to level (bisection; the model decreases
// monotonically up to f = 1).
inline double SlantedEdgeTrueCrossing(double sigma, double level) {
  double lo = 0.0;
  double hi = 1.0;
  for (int i = 0; i < 200; ++i) {
    const double mid = 0.5 * (lo + hi);
    if (SlantedEdgeTrueMtf(sigma, mid) > level) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  return 0.5 * (lo + hi);
}

}  // namespace datagen
