#include "Plots.h"

#include <plplot.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "AtomicFile.h"
#include "OrderStatistics.h"

namespace ombrix_tool {

namespace {

// PLplot keeps its streams in global state and is not thread-safe: every plot holds this lock
// from its first PLplot call to its last.
std::mutex& PlplotMutex() {
  static std::mutex mutex;
  return mutex;
}

// Colour map 0: background, foreground (axes, text), grid, then the series colours.
constexpr PLINT kBackground = 0;
constexpr PLINT kForeground = 1;
constexpr PLINT kGrid = 2;
constexpr PLINT kFirstSeries = 3;
constexpr std::array<std::array<PLINT, 3>, 13> kPalette = {{{255, 255, 255},
                                                            {0, 0, 0},
                                                            {210, 210, 210},
                                                            {31, 119, 180},
                                                            {214, 39, 40},
                                                            {44, 160, 44},
                                                            {255, 127, 14},
                                                            {148, 103, 189},
                                                            {140, 86, 75},
                                                            {227, 119, 194},
                                                            {127, 127, 127},
                                                            {188, 189, 34},
                                                            {23, 190, 207}}};
constexpr int kSeriesColours = static_cast<int>(kPalette.size()) - kFirstSeries;

constexpr PLINT kSolid = 1;
constexpr PLINT kDashed = 3;
constexpr PLFLT kCurveWidth = 2.0;

PLINT SeriesColour(std::size_t index) {
  return kFirstSeries + static_cast<PLINT>(index % kSeriesColours);
}

// The length of the well-formed UTF-8 sequence at text[i], or 0 when there is none (stray
// continuation byte, overlong form, surrogate, beyond U+10FFFF, cut short).
std::size_t Utf8SequenceAt(const std::string& text, std::size_t i) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;  // the second byte's range
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  if (byte(i + 1) < low || byte(i + 1) > high) return 0;
  for (std::size_t k = 2; k < length; ++k) {
    if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) return 0;
  }
  return length;
}

// Text as PLplot draws it literally: malformed UTF-8 (which PLplot refuses to draw at all, with an
// error on standard error) becomes U+FFFD, and '#', which starts PLplot's text escapes, is written
// twice.
std::string PlainText(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = Utf8SequenceAt(text, i);
    if (length == 0) {
      escaped += "\xEF\xBF\xBD";
      ++i;
      continue;
    }
    escaped.append(text, i, length);
    if (text[i] == '#') escaped += '#';
    i += length;
  }
  return escaped;
}

// One PLplot stream on a file device, initialised with the project's page and colours; ending
// the stream (plend1) writes the file.
class CPlotStream {
 public:
  CPlotStream(const char* device, const std::string& fileName) {
    plmkstrm(&stream_);
    plsdev(device);
    plsfnam(fileName.c_str());
    plspage(0.0, 0.0, kPlotWidth, kPlotHeight, 0, 0);
    std::array<PLINT, kPalette.size()> r{}, g{}, b{};
    for (std::size_t i = 0; i < kPalette.size(); ++i) {
      r[i] = kPalette[i][0];
      g[i] = kPalette[i][1];
      b[i] = kPalette[i][2];
    }
    plscmap0(r.data(), g.data(), b.data(), static_cast<PLINT>(kPalette.size()));
    plinit();
    pladv(0);
    plschr(0.0, 0.9);
  }
  ~CPlotStream() { plend1(); }
  CPlotStream(const CPlotStream&) = delete;
  CPlotStream& operator=(const CPlotStream&) = delete;

 private:
  PLINT stream_ = 0;
};

struct Range {
  double lo = std::numeric_limits<double>::infinity();
  double hi = -std::numeric_limits<double>::infinity();
  void Add(double v) {
    if (!std::isfinite(v)) return;
    lo = std::min(lo, v);
    hi = std::max(hi, v);
  }
  bool Empty() const { return !(lo <= hi); }
};

// The axis range a plot shows: the caller's limits where given, otherwise the data's, widened
// where it would be empty so that PLplot always gets a valid window.
void AxisLimits(double wantLo, double wantHi, const Range& data, double margin, double& lo,
                double& hi) {
  double dataLo = data.Empty() ? 0.0 : data.lo;
  double dataHi = data.Empty() ? 1.0 : data.hi;
  const double span = dataHi - dataLo;
  if (span > 0 && std::isfinite(span * (1 + 2 * margin))) {
    dataLo -= margin * span;
    dataHi += margin * span;
  }
  lo = std::isfinite(wantLo) ? wantLo : dataLo;
  hi = std::isfinite(wantHi) ? wantHi : dataHi;
  if (!(hi > lo)) {
    const double half = std::max(1.0, std::abs(lo)) * 0.5;
    if (std::isfinite(wantLo) && !std::isfinite(wantHi)) {
      hi = lo + 2 * half;
    } else if (!std::isfinite(wantLo) && std::isfinite(wantHi)) {
      lo = hi - 2 * half;
    } else {
      const double centre = 0.5 * (lo + hi);
      lo = centre - half;
      hi = centre + half;
    }
  }
}

void CheckFinite(double value, const char* what, const std::string& path) {
  if (std::isnan(value)) return;
  if (!std::isfinite(value)) throw std::runtime_error(path + ": " + what + " is not finite");
}

// Axes: grid at the major ticks under the frame, ticks and numbers on the frame, labels, title.
void DrawFrame(double xmin, double xmax, double ymin, double ymax, const std::string& title,
               const std::string& xLabel, const std::string& yLabel) {
  plvpor(kPlotBoxLeft, kPlotBoxRight, kPlotBoxBottom, kPlotBoxTop);
  plwind(xmin, xmax, ymin, ymax);
  plcol0(kGrid);
  pllsty(kSolid);
  plwidth(1.0);
  plbox("g", 0.0, 0, "g", 0.0, 0);
  plcol0(kForeground);
  plbox("bcnst", 0.0, 0, "bcnstv", 0.0, 0);
  pllab(PlainText(xLabel).c_str(), PlainText(yLabel).c_str(), PlainText(title).c_str());
}

struct LegendEntry {
  std::string text;
  PLINT colour;
  PLINT style;
  bool box;  // a filled box rather than a line sample
};

// The legend goes into the corner of the axes box that the fewest points fall in, so that it
// hides as little of the data as possible. points: positions inside the box as fractions.
PLINT EmptiestCorner(const std::vector<std::pair<double, double>>& points) {
  const PLINT corners[] = {
      PL_POSITION_TOP | PL_POSITION_RIGHT, PL_POSITION_BOTTOM | PL_POSITION_RIGHT,
      PL_POSITION_TOP | PL_POSITION_LEFT, PL_POSITION_BOTTOM | PL_POSITION_LEFT};
  std::array<std::size_t, 4> counts{};
  for (const auto& p : points) {
    const bool right = p.first >= 0.55;
    const bool left = p.first <= 0.45;
    const bool top = p.second >= 0.6;
    const bool bottom = p.second <= 0.4;
    if (top && right) ++counts[0];
    if (bottom && right) ++counts[1];
    if (top && left) ++counts[2];
    if (bottom && left) ++counts[3];
  }
  const auto best = std::min_element(counts.begin(), counts.end()) - counts.begin();
  return corners[best];
}

void DrawLegend(const std::vector<LegendEntry>& entries, PLINT position) {
  if (entries.empty()) return;
  const std::size_t n = entries.size();
  std::vector<PLINT> options(n), textColours(n, kForeground), colours(n), styles(n);
  std::vector<PLINT> patterns(n, 0);
  std::vector<PLFLT> widths(n, kCurveWidth), scales(n, 0.8), boxWidths(n, 1.0);
  std::vector<std::string> texts(n);
  std::vector<const char*> textPointers(n);
  for (std::size_t i = 0; i < n; ++i) {
    options[i] = entries[i].box ? PL_LEGEND_COLOR_BOX : PL_LEGEND_LINE;
    colours[i] = entries[i].colour;
    styles[i] = entries[i].style;
    texts[i] = PlainText(entries[i].text);
    textPointers[i] = texts[i].c_str();
  }
  // A long legend (a chart of many edges) is set in columns of at most 12 entries in smaller
  // type, so that it stays inside the box.
  constexpr std::size_t kMaxRows = 12;
  const std::size_t columns = (n + kMaxRows - 1) / kMaxRows;
  const std::size_t rows = (n + columns - 1) / columns;
  const PLFLT textScale = columns > 1 ? 0.65 : 0.8;
  const PLFLT sampleWidth = columns > 1 ? 0.04 : 0.08;
  PLFLT width = 0, height = 0;
  plcol0(kForeground);
  pllsty(kSolid);
  pllegend(&width, &height, PL_LEGEND_BACKGROUND | PL_LEGEND_BOUNDING_BOX,
           position | PL_POSITION_INSIDE | PL_POSITION_VIEWPORT, 0.02, 0.02, sampleWidth,
           kBackground, kForeground, kSolid, static_cast<PLINT>(rows), static_cast<PLINT>(columns),
           static_cast<PLINT>(n), options.data(), 1.0, textScale, 2.0, 0.0, textColours.data(),
           textPointers.data(), colours.data(), patterns.data(), scales.data(), boxWidths.data(),
           colours.data(), styles.data(), widths.data(), nullptr, nullptr, nullptr, nullptr);
}

void DrawCurves(const PlotSpec& spec, double xmin, double xmax, double ymin, double ymax) {
  DrawFrame(xmin, xmax, ymin, ymax, spec.title, spec.xLabel, spec.yLabel);
  std::vector<LegendEntry> legend;
  std::vector<std::pair<double, double>> inBox;
  std::size_t series = 0;
  plwidth(kCurveWidth);
  for (const Curve& curve : spec.curves) {
    const PLINT colour = SeriesColour(series++);
    plcol0(colour);
    pllsty(kSolid);
    // Non-finite points break the curve into runs drawn separately.
    std::vector<PLFLT> xs, ys;
    auto flush = [&] {
      if (xs.size() >= 2) plline(static_cast<PLINT>(xs.size()), xs.data(), ys.data());
      xs.clear();
      ys.clear();
    };
    for (std::size_t i = 0; i < curve.x.size(); ++i) {
      if (std::isfinite(curve.x[i]) && std::isfinite(curve.y[i])) {
        xs.push_back(curve.x[i]);
        ys.push_back(curve.y[i]);
        inBox.emplace_back((curve.x[i] - xmin) / (xmax - xmin),
                           (curve.y[i] - ymin) / (ymax - ymin));
      } else {
        flush();
      }
    }
    if (xs.size() == 1) plpoin(1, xs.data(), ys.data(), 17);
    flush();
    if (!curve.label.empty()) legend.push_back({curve.label, colour, kSolid, false});
  }
  const double xr = xmax - xmin;
  const double yr = ymax - ymin;
  for (const VerticalMarker& marker : spec.vmarkers) {
    if (!std::isfinite(marker.x)) continue;
    const PLINT colour = SeriesColour(series++);
    plcol0(colour);
    pllsty(kDashed);
    const PLFLT xs[2] = {marker.x, marker.x};
    const PLFLT ys[2] = {ymin, ymax};
    plline(2, xs, ys);
    pllsty(kSolid);
    if (marker.x >= xmin && marker.x <= xmax && !marker.label.empty()) {
      // Written upwards beside the line, ending just under the top of the box.
      plptex(marker.x + 0.018 * xr, ymax - 0.02 * yr, 0.0, 1.0, 1.0,
             PlainText(marker.label).c_str());
    }
    if (!marker.label.empty()) legend.push_back({marker.label, colour, kDashed, false});
    for (int k = 0; k <= 10; ++k) inBox.emplace_back((marker.x - xmin) / xr, k / 10.0);
  }
  for (const HorizontalMarker& marker : spec.hmarkers) {
    if (!std::isfinite(marker.y)) continue;
    const PLINT colour = SeriesColour(series++);
    plcol0(colour);
    pllsty(kDashed);
    const PLFLT xs[2] = {xmin, xmax};
    const PLFLT ys[2] = {marker.y, marker.y};
    plline(2, xs, ys);
    pllsty(kSolid);
    if (marker.y >= ymin && marker.y <= ymax && !marker.label.empty()) {
      plptex(xmin + 0.01 * xr, marker.y + 0.025 * yr, 1.0, 0.0, 0.0,
             PlainText(marker.label).c_str());
    }
    if (!marker.label.empty()) legend.push_back({marker.label, colour, kDashed, false});
    for (int k = 0; k <= 10; ++k) inBox.emplace_back(k / 10.0, (marker.y - ymin) / yr);
  }
  plwidth(1.0);
  DrawLegend(legend, EmptiestCorner(inBox));
}

// Writes the plot as PNG and, when svgPath is not empty, as SVG: draw is called once per device
// with the stream open. Both files are created before drawing and renamed into place after both
// are drawn, so an unwritable SVG folder leaves no PNG either.
template <typename Draw>
void WritePlots(const std::string& pngPath, const std::string& svgPath, const Draw& draw) {
  CAtomicFile png(pngPath);
  std::unique_ptr<CAtomicFile> svg;
  if (!svgPath.empty()) svg = std::make_unique<CAtomicFile>(svgPath);
  {
    CPlotStream stream("pngcairo", png.TemporaryPath());
    draw();
  }
  if (svg) {
    // PLplot's own SVG device writes text as <text> elements (cairo's would write glyph
    // outlines), so the labels of an SVG plot can be searched and copied.
    CPlotStream stream("svg", svg->TemporaryPath());
    draw();
  }
  png.Commit();
  if (svg) svg->Commit();
}

// The finite values of a single-channel image, as float, in raster order.
std::vector<float> FiniteValues(const cv::Mat& image) {
  cv::Mat values;
  image.convertTo(values, CV_32F);
  std::vector<float> finite;
  finite.reserve(values.total());
  for (int r = 0; r < values.rows; ++r) {
    const float* row = values.ptr<float>(r);
    for (int c = 0; c < values.cols; ++c) {
      if (std::isfinite(row[c])) finite.push_back(row[c]);
    }
  }
  return finite;
}

void CheckSingleChannel(const cv::Mat& image, const std::string& path) {
  if (image.empty()) throw std::runtime_error(path + ": the image is empty");
  if (image.channels() != 1 || image.dims != 2) {
    throw std::runtime_error(path + ": a single-channel two-dimensional image is needed");
  }
}

// lo/hi as given, or 0 (the smallest value where one is negative) and the 99.9th percentile of the
// finite values; a valid (hi > lo) range in any case. Reorders the values where lo or hi is NaN.
void ValueRange(std::vector<float>& finite, double& lo, double& hi) {
  if (std::isnan(lo)) {
    const double smallest =
        finite.empty() ? 0.0 : static_cast<double>(*std::min_element(finite.begin(), finite.end()));
    lo = std::min(0.0, smallest);
  }
  if (std::isnan(hi)) hi = finite.empty() ? lo + 1.0 : Percentiles(finite, {0.999})[0];
  if (!(hi > lo)) hi = lo + std::max(1.0, std::abs(lo)) * 1e-3;
}

std::string Count(std::size_t n) { return std::to_string(n); }

}  // namespace

void PlotCurves(const PlotSpec& spec, const std::string& pngPath, const std::string& svgPath) {
  Range xs, ys;
  for (const Curve& curve : spec.curves) {
    if (curve.x.size() != curve.y.size()) {
      throw std::runtime_error(pngPath + ": curve \"" + curve.label + "\" has " +
                               Count(curve.x.size()) + " x and " + Count(curve.y.size()) +
                               " y values");
    }
    for (std::size_t i = 0; i < curve.x.size(); ++i) {
      if (std::isfinite(curve.x[i]) && std::isfinite(curve.y[i])) {
        xs.Add(curve.x[i]);
        ys.Add(curve.y[i]);
      }
    }
  }
  for (const VerticalMarker& marker : spec.vmarkers) xs.Add(marker.x);
  for (const HorizontalMarker& marker : spec.hmarkers) ys.Add(marker.y);
  CheckFinite(spec.xmin, "xmin", pngPath);
  CheckFinite(spec.xmax, "xmax", pngPath);
  CheckFinite(spec.ymin, "ymin", pngPath);
  CheckFinite(spec.ymax, "ymax", pngPath);
  if (std::isfinite(spec.xmin) && std::isfinite(spec.xmax) && !(spec.xmax > spec.xmin)) {
    throw std::runtime_error(pngPath + ": xmax must be greater than xmin");
  }
  if (std::isfinite(spec.ymin) && std::isfinite(spec.ymax) && !(spec.ymax > spec.ymin)) {
    throw std::runtime_error(pngPath + ": ymax must be greater than ymin");
  }
  double xmin, xmax, ymin, ymax;
  AxisLimits(spec.xmin, spec.xmax, xs, 0.0, xmin, xmax);
  AxisLimits(spec.ymin, spec.ymax, ys, 0.05, ymin, ymax);

  std::lock_guard<std::mutex> lock(PlplotMutex());
  auto draw = [&] { DrawCurves(spec, xmin, xmax, ymin, ymax); };
  WritePlots(pngPath, svgPath, draw);
}

void PlotHistogram(const cv::Mat& values32f, int bins, double lo, double hi,
                   const std::string& title, const std::string& xLabel, const std::string& pngPath,
                   const std::string& svgPath) {
  CheckSingleChannel(values32f, pngPath);
  if (bins < 1 || bins > 100000) {
    throw std::runtime_error(pngPath + ": the bin count must be 1 to 100000, not " +
                             std::to_string(bins));
  }
  CheckFinite(lo, "the lower histogram limit", pngPath);
  CheckFinite(hi, "the upper histogram limit", pngPath);
  if (!std::isnan(lo) && !std::isnan(hi) && !(hi > lo)) {
    throw std::runtime_error(pngPath + ": the upper histogram limit must exceed the lower");
  }
  std::vector<float> finite = FiniteValues(values32f);
  if (finite.empty()) throw std::runtime_error(pngPath + ": the image has no finite value");
  ValueRange(finite, lo, hi);

  std::vector<double> counts(static_cast<std::size_t>(bins), 0.0);
  std::size_t below = 0, above = 0;
  const double scale = bins / (hi - lo);
  for (float v : finite) {
    if (v < lo) {
      ++below;
    } else if (v > hi) {
      ++above;
    } else {
      const auto bin =
          std::min(static_cast<std::size_t>((v - lo) * scale), static_cast<std::size_t>(bins - 1));
      counts[bin] += 1.0;
    }
  }
  const double highest = *std::max_element(counts.begin(), counts.end());
  std::string summary = Count(finite.size()) + " values";
  if (below > 0) summary += ", " + Count(below) + " below";
  if (above > 0) summary += ", " + Count(above) + " above";
  if (below > 0 || above > 0) summary += " the range";

  std::lock_guard<std::mutex> lock(PlplotMutex());
  auto draw = [&] {
    // Headroom over the highest bar keeps the legend clear of the bars.
    DrawFrame(lo, hi, 0.0, std::max(1.0, highest * 1.25), title, xLabel, "pixels");
    plcol0(kFirstSeries);
    const double width = (hi - lo) / bins;
    for (int b = 0; b < bins; ++b) {
      const double count = counts[static_cast<std::size_t>(b)];
      if (count <= 0) continue;
      const PLFLT x0 = lo + b * width;
      const PLFLT x1 = (b + 1 == bins) ? hi : lo + (b + 1) * width;
      const PLFLT xs[4] = {x0, x0, x1, x1};
      const PLFLT ys[4] = {0.0, count, count, 0.0};
      plfill(4, xs, ys);
    }
    plcol0(kForeground);
    plbox("bc", 0.0, 0, "bc", 0.0, 0);  // the frame again, over the bars touching it
    DrawLegend({{summary, kFirstSeries, kSolid, true}}, PL_POSITION_TOP | PL_POSITION_RIGHT);
  };
  WritePlots(pngPath, svgPath, draw);
}

void PlotFalseColour(const cv::Mat& map32f, double lo, double hi, const std::string& title,
                     const std::string& unit, const std::string& pngPath) {
  CheckSingleChannel(map32f, pngPath);
  CheckFinite(lo, "the lower colour limit", pngPath);
  CheckFinite(hi, "the upper colour limit", pngPath);
  if (!std::isnan(lo) && !std::isnan(hi) && !(hi > lo)) {
    throw std::runtime_error(pngPath + ": the upper colour limit must exceed the lower");
  }
  cv::Mat values;
  map32f.convertTo(values, CV_32F);
  {
    const bool defaultRange = std::isnan(lo) || std::isnan(hi);
    std::vector<float> finite = defaultRange ? FiniteValues(values) : std::vector<float>();
    ValueRange(finite, lo, hi);
  }

  // A map larger than the plot is shown as the mean of the finite values of square blocks (more
  // cells than pixels would only cost drawing time).
  constexpr int kMaxCells = 400;
  const int factor = (std::max(values.rows, values.cols) + kMaxCells - 1) / kMaxCells;
  const int cols = (values.cols + factor - 1) / factor;
  const int rows = (values.rows + factor - 1) / factor;
  // Cells that stay non-finite are set below the colour range, which plimagefr leaves undrawn.
  const double undrawn = lo - (hi - lo) - 1.0;
  std::vector<PLFLT> cells(static_cast<std::size_t>(cols) * rows);
  std::vector<PLFLT*> columns(static_cast<std::size_t>(cols));
  for (int c = 0; c < cols; ++c) columns[c] = cells.data() + static_cast<std::size_t>(c) * rows;
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) {
      double sum = 0;
      int n = 0;
      for (int y = r * factor; y < std::min(values.rows, (r + 1) * factor); ++y) {
        const float* row = values.ptr<float>(y);
        for (int x = c * factor; x < std::min(values.cols, (c + 1) * factor); ++x) {
          if (std::isfinite(row[x])) {
            sum += row[x];
            ++n;
          }
        }
      }
      columns[c][r] = n > 0 ? std::clamp(sum / n, lo, hi) : undrawn;
    }
  }

  // Colour map 1: viridis, as OpenCV defines it.
  cv::Mat ramp(1, 256, CV_8U), colours;
  for (int i = 0; i < 256; ++i) ramp.at<std::uint8_t>(i) = static_cast<std::uint8_t>(i);
  cv::applyColorMap(ramp, colours, cv::COLORMAP_VIRIDIS);
  std::array<PLINT, 256> red{}, green{}, blue{};
  for (int i = 0; i < 256; ++i) {
    const cv::Vec3b bgr = colours.at<cv::Vec3b>(i);
    red[i] = bgr[2];
    green[i] = bgr[1];
    blue[i] = bgr[0];
  }

  std::lock_guard<std::mutex> lock(PlplotMutex());
  WritePlots(pngPath, "", [&] {
    plscmap1(red.data(), green.data(), blue.data(), 256);
    // The picture keeps its aspect ratio inside the space left of the colour bar.
    plvpas(0.12, 0.80, 0.10, 0.90, static_cast<double>(values.rows) / values.cols);
    plwind(0.0, values.cols, values.rows, 0.0);  // image rows downwards
    // plimagefr rather than plimage: plimage would scale the colours to the data's own extremes,
    // the undrawn cells included, instead of [lo, hi].
    plimagefr(columns.data(), cols, rows, 0.0, values.cols, 0.0, values.rows, lo, hi, lo, hi,
              nullptr, nullptr);
    plcol0(kForeground);
    plbox("bcnst", 0.0, 0, "bcnstv", 0.0, 0);
    pllab("x (pixels)", "y (pixels)", PlainText(title).c_str());

    const std::string label = PlainText(unit);
    const char* labels[] = {label.c_str()};
    const PLINT labelOptions[] = {PL_COLORBAR_LABEL_RIGHT};
    const char* axisOptions[] = {"bcvtm"};
    const PLFLT ticks[] = {0.0};
    const PLINT subTicks[] = {0};
    const PLINT valueCounts[] = {2};
    const PLFLT range[] = {lo, hi};
    const PLFLT* values2[] = {range};
    PLFLT width = 0, height = 0;
    plcolorbar(&width, &height, PL_COLORBAR_IMAGE, PL_POSITION_RIGHT | PL_POSITION_OUTSIDE, 0.03,
               0.0, 0.04, 0.8, kBackground, kForeground, kSolid, 0.0, 1.0, kForeground, 1.0, 1,
               labelOptions, labels, 1, axisOptions, ticks, subTicks, valueCounts, values2);
  });
}

}  // namespace ombrix_tool
