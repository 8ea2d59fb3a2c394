#include "mtf/Mtf.h"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

namespace {

constexpr double kEpsilon = 2.220446049250313e-16;
constexpr double kCutLevel = 0.1;
constexpr double kMaximumCorrection = 10.0;

// Correlation with (-0.5, 0.0, 0.5) at the first N - 3 positions; the remaining three repeat the
// last value computed (0 when there is none).
std::vector<double> Derivative(const std::vector<double>& esf) {
  static const double kernel[3] = {-0.5, 0.0, 0.5};
  const int n = static_cast<int>(esf.size());
  const int k = 3;
  std::vector<double> lsf(esf.size(), 0.0);
  double last = 0.0;
  for (int j = 0; j < n - k; ++j) {
    double sum = 0.0;
    for (int t = 0; t < k; ++t) sum += esf[j + t] * kernel[t];
    lsf[j] = sum;
    last = sum;
  }
  for (int j = std::max(0, n - k); j < n; ++j) lsf[j] = last;
  return lsf;
}

void CentreOnCentroid(std::vector<double>& lsf) {
  const int n = static_cast<int>(lsf.size());
  double sum1 = 0.0;
  double sum0 = 0.0;
  for (int i = 0; i < n; ++i) {
    sum1 += (i + 1) * lsf[i];
    sum0 += lsf[i];
  }
  // An LSF without positive area has no centroid to move: it stays where it is.
  if (!(sum0 > 0.0)) return;
  const double centroid = sum1 / sum0 - 1.0;
  const long shift = std::lround(centroid - std::round(n * 0.5));
  if (shift == 0) return;
  const long first = ((shift % n) + n) % n;
  std::rotate(lsf.begin(), lsf.begin() + first, lsf.end());
}

void ApplyHammingWindow(std::vector<double>& lsf) {
  const int n = static_cast<int>(lsf.size());
  const int m = n / 2;
  const int d = std::max(n - m, m - 1);
  for (int k = 1; k <= n; ++k) {
    const double weight = std::pow(0.54 + 0.46 * std::cos((k - m) * CV_PI / d), 1.0);
    lsf[k - 1] *= weight;
  }
}

std::vector<double> SpectrumMagnitude(std::vector<double>& lsf) {
  cv::Mat row(1, static_cast<int>(lsf.size()), CV_64F, lsf.data());
  cv::Mat spectrum;
  cv::dft(row, spectrum, cv::DFT_COMPLEX_OUTPUT | cv::DFT_ROWS);
  cv::Mat planes[2];
  cv::split(spectrum, planes);
  cv::Mat magnitude;
  cv::magnitude(planes[0], planes[1], magnitude);
  return std::vector<double>(magnitude.begin<double>(), magnitude.end<double>());
}

}  // namespace

void ComputeMtf(MtfResult& result, const KProfile<double>& esf, float slope, float oversampling) {
  const float pixelSize = result.resolution > 1.0f ? 25.4f / result.resolution : 1.0f;
  result.pitch = std::cos(std::atan(slope)) * pixelSize;
  result.esf = esf;

  const int n = static_cast<int>(esf.Size());
  std::vector<double> lsf = Derivative(esf.values);
  std::vector<double> mtf;
  if (n > 0) {
    CentreOnCentroid(lsf);
    ApplyHammingWindow(lsf);
    mtf = SpectrumMagnitude(lsf);
  }
  result.lsf = KProfile<double>(lsf, 0.0, 1.0);

  for (double& value : mtf) value = std::fabs(value);
  if (!mtf.empty() && mtf[0] != 0.0) {
    const double first = mtf[0];
    for (double& value : mtf) value /= first;
  }
  const int m = (n + 1) / 2;
  mtf.resize(m);

  std::vector<double> frequencies(m);
  const float nPitch = static_cast<float>(n) * result.pitch;
  for (int i = 0; i < m; ++i) {
    const float numerator = static_cast<float>(i) * oversampling;
    frequencies[i] = static_cast<double>(numerator) / static_cast<double>(nPitch);
  }
  for (int k = 1; k < m; ++k) {
    const double x = 2.0 * CV_PI * k / (2.0 * (m + 1));
    const double factor = std::min(std::fabs(x / std::sin(x)), kMaximumCorrection);
    mtf[k] *= factor;
  }
  const double step = m > 1 ? frequencies[1] - frequencies[0] : 0.0;
  result.mtf = KProfile<double>(mtf, 0.0, 1.0);
  result.mtfCopy = result.mtf;
  result.frequencies = KProfile<double>(frequencies, 0.0, step);

  result.cutFrequency = static_cast<float>(MtfCrossing(result, kCutLevel));

  result.nyquist = -1.0f;
  if (m > 1) {
    const double limit = 0.5 / result.pitch - (frequencies[1] + kEpsilon);
    for (int i = 1; i < m; ++i) {
      if (frequencies[i] > limit) {
        result.nyquist = static_cast<float>(frequencies[i]);
        break;
      }
    }
  }

  float efficiency = 0.0f;
  if (result.nyquist > 0.0f) efficiency = result.cutFrequency * 100.0f / result.nyquist;
  if (efficiency > 100.0f) efficiency = 100.0f;
  if (!(efficiency > 0.0f)) efficiency = 0.0f;
  result.efficiency = efficiency;

  result.fwhm = static_cast<float>(LsfWidth(result, oversampling));
}

double MtfCrossing(const MtfResult& result, double level) {
  const std::vector<double>& m = result.mtfCopy.values;
  const int n = static_cast<int>(m.size());
  if (n < 2) return -1.0;
  double x = -1.0;
  for (int i = 1; i < n; ++i) {
    if (m[i] == level) {
      x = i;
      break;
    }
    if (m[i - 1] > level && level >= m[i]) {
      x = (i - 1) + (m[i - 1] - level) / (m[i - 1] - m[i]);
      break;
    }
  }
  if (x <= 0.0) return -1.0;
  const std::vector<double>& f = result.frequencies.values;
  const int i0 = static_cast<int>(std::floor(x));
  const double fraction = x - i0;
  // A frequency axis shorter than the curve (a result assembled by hand) has no frequency there.
  const int axis = static_cast<int>(f.size());
  if (fraction > 0.0 && i0 + 1 < n) {
    if (i0 + 1 >= axis) return -1.0;
    return f[i0] + (f[i0 + 1] - f[i0]) * fraction;
  }
  if (i0 >= axis) return -1.0;
  return f[i0];
}

double LsfWidth(const MtfResult& result, float oversampling) {
  const std::vector<double>& l = result.lsf.values;
  const int n = static_cast<int>(l.size());
  if (n == 0) return 0.0;
  double maximum = l[0];
  int p = 0;
  for (int i = 1; i < n; ++i) {
    if (l[i] >= maximum) {
      maximum = l[i];
      p = i;
    }
  }
  const double half = 0.5 * maximum;
  double xl = 0.0;
  for (int i = 1; i < p; ++i) {
    if (l[i] > half) {
      xl = (i - 1) + (half - l[i - 1]) / (l[i] - l[i - 1]);
      break;
    }
  }
  double xr = 0.0;
  for (int i = std::max(p, 1); i < n; ++i) {
    if (l[i - 1] >= half && half > l[i]) xr = (i - 1) + (half - l[i - 1]) / (l[i] - l[i - 1]);
  }
  return (xr - xl) / oversampling;
}
