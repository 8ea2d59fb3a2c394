#include "MtfCommand.h"

#include <cstdio>
#include <iostream>

#include "InputFiles.h"
#include "ParallelFiles.h"
#include "ProgressBar.h"
#include "RectOption.h"
#include "ToolError.h"
#include "mtf/MtfDrawing.h"
#include "mtf/MtfMeasurement.h"
#include "mtf/MtfUncertainty.h"

namespace ombrix_tool {

namespace {

struct EdgeRow {
  int target = 0;  // 0 for a single edge (--edge)
  std::string side;
  cv::Rect region;
  double angle = -1.0;
  double mtf50 = -1.0;
  MtfResult result;
  MtfEdgeUncertainty uncertainty;
};

struct ImageMeasurement {
  std::vector<EdgeRow> rows;
  cv::Mat chart;
  std::string failure;  // why nothing could be measured; empty on success
};

const char* SideName(EdgeSide side) {
  switch (side) {
    case EdgeSide::Left:
      return "left";
    case EdgeSide::Top:
      return "top";
    case EdgeSide::Right:
      return "right";
    case EdgeSide::Bottom:
      return "bottom";
  }
  return "?";
}

ImageMeasurement MeasureImage(const std::string& path, const MtfOptions& options,
                              const cv::Rect* roi) {
  const cv::Mat image = ReadImage(path);
  CMtfMeasurement measurement;
  measurement.gamma = options.gamma;
  const CMtfUncertainty uncertainty;
  ImageMeasurement out;
  if (options.edge) {
    if (roi != nullptr) {
      measurement.edgeRegion[0] = roi->x;
      measurement.edgeRegion[1] = roi->y;
      measurement.edgeRegion[2] = roi->width;
      measurement.edgeRegion[3] = roi->height;
    }
    if (roi != nullptr) RequireInside("--roi", *roi, image.size(), path);
    cv::Rect area;
    if (!measurement.EdgeArea(image, area)) {
      throw UsageError("--roi: " + options.roi + " reaches outside " + path);
    }
    EdgeRow row;
    float slope = 0.0f;
    if (!measurement.MeasureEdge(image, row.result, &slope)) {
      out.failure = "edge not located";
      return out;
    }
    MtfResult again;
    uncertainty.MeasureEdge(measurement, image, again, row.uncertainty);
    row.side = "edge";
    row.region = area;
    row.angle = CMtfMeasurement::TiltDegrees(slope);
    row.mtf50 = MtfCrossing(row.result, 0.5);
    out.rows.push_back(row);
    return out;
  }
  const MtfTargetMap targets = measurement.MeasureTargets(image);
  std::size_t edges = 0;
  for (const auto& entry : targets) edges += entry.second.edges.size();
  if (edges == 0) {
    out.failure = targets.empty() ? "no target found" : "no edge of a target could be measured";
    return out;
  }
  const MtfTargetUncertainty intervals = uncertainty.MeasureTargets(measurement, image, targets);
  for (const auto& [number, target] : targets) {
    const auto found = intervals.find(number);
    for (std::size_t e = 0; e < target.edges.size(); ++e) {
      const MtfEdge& edge = target.edges[e];
      EdgeRow row;
      row.target = number;
      row.side = SideName(edge.side);
      row.region = edge.region;
      row.angle = CMtfMeasurement::TiltDegrees(edge.slope);
      row.result = edge.result;
      row.mtf50 = MtfCrossing(edge.result, 0.5);
      if (found != intervals.end() && e < found->second.size()) row.uncertainty = found->second[e];
      out.rows.push_back(row);
    }
  }
  DrawMtfResults(image, targets, out.chart);
  return out;
}

std::string Subject(const EdgeRow& row) {
  return row.target == 0 ? std::string("edge")
                         : "target " + std::to_string(row.target) + " " + row.side;
}

Figure FrequencyFigure(const std::string& input, const EdgeRow& row, const std::string& name,
                       const MtfInterval& interval, double value, double scale,
                       const std::string& unit) {
  Figure figure;
  figure.input = input;
  figure.subject = Subject(row);
  figure.name = name;
  figure.value = value >= 0.0 ? value * scale : -1.0;
  figure.unit = unit;
  figure.hasInterval = interval.Available();
  if (figure.hasInterval) {
    figure.lower = interval.lower * scale;
    figure.upper = interval.upper * scale;
  }
  return figure;
}

void Record(RunContext& run, const std::string& input, const EdgeRow& row,
            const MtfOptions& options) {
  ResultsDocument& doc = run.Document();
  doc.AddFigure(input, Subject(row), "angle", row.angle, "degree");
  doc.AddFigure(
      FrequencyFigure(input, row, "MTF50", row.uncertainty.mtf50, row.mtf50, 1.0, "cycles/pixel"));
  doc.AddFigure(FrequencyFigure(input, row, "cut frequency", row.uncertainty.cutFrequency,
                                row.result.cutFrequency, 1.0, "cycles/pixel"));
  doc.AddFigure(input, Subject(row), "efficiency", row.result.efficiency, "%");
  doc.AddFigure(input, Subject(row), "LSF FWHM", row.result.fwhm, "pixel");
  if (options.pixelPitch > 0.0) {
    // cycles/pixel over the pitch in mm: cycles (line pairs) per mm.
    const double scale = 1000.0 / options.pixelPitch;
    doc.AddFigure(FrequencyFigure(input, row, "MTF50", row.uncertainty.mtf50, row.mtf50, scale,
                                  "line pairs/mm"));
    doc.AddFigure(FrequencyFigure(input, row, "cut frequency", row.uncertainty.cutFrequency,
                                  row.result.cutFrequency, scale, "line pairs/mm"));
  }
}

std::string IntervalText(double value, const MtfInterval& interval, double scale) {
  std::string text = Fixed(value >= 0.0 ? value * scale : -1.0, 4);
  if (interval.Available()) {
    text += " [" + Fixed(interval.lower * scale, 4) + ", " + Fixed(interval.upper * scale, 4) + "]";
  }
  return text;
}

void PrintTable(const RunContext& run, const std::string& input, const ImageMeasurement& m,
                const MtfOptions& options) {
  const bool mm = options.pixelPitch > 0.0;
  const double scale = mm ? 1000.0 / options.pixelPitch : 1.0;
  run.Say(input + ": " + std::to_string(m.rows.size()) + (m.rows.size() == 1 ? " edge" : " edges"));
  char line[256];
  std::snprintf(line, sizeof line, "  %-6s %-6s %9s  %-30s %-30s %10s", "target", "side",
                "angle deg", mm ? "MTF50 lp/mm [95%]" : "MTF50 c/px [95%]",
                mm ? "cut (MTF 0.1) lp/mm [95%]" : "cut (MTF 0.1) c/px [95%]", "efficiency %");
  run.Say(line);
  for (const EdgeRow& row : m.rows) {
    std::snprintf(
        line, sizeof line, "  %-6s %-6s %9s  %-30s %-30s %10s",
        row.target == 0 ? "-" : std::to_string(row.target).c_str(), row.side.c_str(),
        Fixed(row.angle, 2).c_str(), IntervalText(row.mtf50, row.uncertainty.mtf50, scale).c_str(),
        IntervalText(row.result.cutFrequency, row.uncertainty.cutFrequency, scale).c_str(),
        Fixed(row.result.efficiency, 2).c_str());
    run.Say(line);
  }
}

}  // namespace

int RunMtf(const MtfOptions& given, const CommonOptions& common) {
  MtfOptions options = given;
  cv::Rect roi;
  const bool hasRoi = !options.roi.empty();
  if (hasRoi) {
    roi = ParseRect("--roi", options.roi, 6);
    options.edge = true;
  }
  if (!(options.gamma > 0.0)) throw UsageError("--gamma: must be positive");
  if (options.pixelPitch < 0.0 || (options.pixelPitch == 0.0 && given.pixelPitch != 0.0)) {
    throw UsageError("--pixel-pitch: must be positive (microns)");
  }
  if (options.plotEdge < 1) throw UsageError("--plot-edge: must be at least 1");
  for (const std::string& image : options.images) {
    CheckImageFile(image);
    // A region outside an image is a usage error, found before the output folder is made.
    if (hasRoi) RequireInside("--roi", roi, ReadImage(image).size(), image);
  }

  RunContext run("mtf", common);
  run.Begin(options.images);
  ResultsDocument& doc = run.Document();
  doc.SetSetting("mode", options.edge ? "single edge" : "targets");
  if (hasRoi) doc.SetSetting("roi", {roi.x, roi.y, roi.width, roi.height});
  doc.SetSetting("gamma", options.gamma);
  if (options.pixelPitch > 0.0) doc.SetSetting("pixelPitchMicrons", options.pixelPitch);

  std::vector<ImageMeasurement> measured(options.images.size());
  {
    ProgressBar progress(static_cast<int>(options.images.size()), "mtf", common.quiet);
    ForEachFile(options.images.size(), [&](std::size_t i) {
      measured[i] = MeasureImage(options.images[i], options, hasRoi ? &roi : nullptr);
      progress.Advance();
    });
  }

  int exitCode = kExitSuccess;
  for (std::size_t i = 0; i < options.images.size(); ++i) {
    const std::string& input = options.images[i];
    const ImageMeasurement& m = measured[i];
    if (!m.failure.empty()) {
      std::cerr << "ombrix: " << input << ": " << m.failure << std::endl;
      exitCode = kExitMeasurement;
      continue;
    }
    for (const EdgeRow& row : m.rows) Record(run, input, row, options);
    PrintTable(run, input, m, options);
    if (!m.chart.empty()) {
      const std::string name = FileStem(input) + "_chart.png";
      run.Folder().WriteImage(name, m.chart);
      doc.AddOutput(name, "annotated chart of " + input);
    }
  }
  run.Finish();
  return exitCode;
}

}  // namespace ombrix_tool
