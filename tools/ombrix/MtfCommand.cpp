#include "MtfCommand.h"

#include <cstdio>
#include <iostream>

#include "InputFiles.h"
#include "ParallelFiles.h"
#include "ProgressBar.h"
#include "RectOption.h"
#include "ToolError.h"
#include "ToolReport.h"
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
  // Profile samples per pixel across the edge.
  double oversampling = 4.0;
};

struct ImageMeasurement {
  std::vector<EdgeRow> rows;
  cv::Mat chart;
  std::string failure;  // why nothing could be measured; empty on success
};

ImageMeasurement MeasureImage(const std::string& path, const MtfOptions& options,
                              const cv::Rect* roi) {
  const cv::Mat image = ReadImage(path);
  // Colour pictures are measured through their grey conversion, which takes 3 or 4 channels.
  if (image.channels() != 1 && image.channels() != 3 && image.channels() != 4) {
    throw UsageError(path + ": unsupported image with " + std::to_string(image.channels()) +
                     " channels (needs 1, 3 or 4)");
  }
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
    row.oversampling = measurement.oversampling;
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
      row.oversampling = measurement.oversampling;
      row.side = EdgeSideName(edge.side);
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

std::string ShortName(const EdgeRow& row) {
  return row.target == 0 ? std::string("edge") : "T" + std::to_string(row.target) + " " + row.side;
}

std::string IntervalCell(const MtfInterval& interval, double scale) {
  if (!interval.Available()) return "n/a";
  return Fixed(interval.lower * scale, 4) + " - " + Fixed(interval.upper * scale, 4);
}

// MTF against frequency for every edge of one image, with the Nyquist frequency, the levels 0.5
// and 0.1, and the MTF50 and cut frequency (of the edge, or their mean over the image's edges).
LinePlot MtfCurves(const std::string& stem, const ImageMeasurement& m) {
  LinePlot plot;
  plot.title = "MTF of " + stem;
  plot.xLabel = "frequency (cycles/pixel)";
  plot.yLabel = "MTF";
  double mtf50Sum = 0.0, cutSum = 0.0;
  int mtf50Count = 0, cutCount = 0;
  for (const EdgeRow& row : m.rows) {
    Curve curve;
    curve.label = ShortName(row);
    const std::size_t n = std::min(row.result.frequencies.Size(), row.result.mtfCopy.Size());
    for (std::size_t i = 0; i < n; ++i) {
      if (row.result.frequencies[i] > 1.0) break;
      curve.x.push_back(row.result.frequencies[i]);
      curve.y.push_back(row.result.mtfCopy[i]);
    }
    plot.curves.push_back(curve);
    if (row.mtf50 >= 0.0) {
      mtf50Sum += row.mtf50;
      ++mtf50Count;
    }
    if (row.result.cutFrequency >= 0.0f) {
      cutSum += row.result.cutFrequency;
      ++cutCount;
    }
  }
  const std::string prefix = m.rows.size() == 1 ? "" : "mean ";
  if (mtf50Count > 0) plot.vmarkers.push_back({prefix + "MTF50", mtf50Sum / mtf50Count});
  if (cutCount > 0) plot.vmarkers.push_back({prefix + "cut (MTF 0.1)", cutSum / cutCount});
  plot.vmarkers.push_back({"Nyquist", 0.5});
  plot.hmarkers.push_back({"MTF = 0.5", 0.5});
  plot.hmarkers.push_back({"MTF = 0.1", 0.1});
  plot.xmin = 0.0;
  plot.ymin = 0.0;
  return plot;
}

// A profile across the edge, positions in pixels from its centre.
LinePlot ProfilePlot(const KProfile<double>& profile, double oversampling, const std::string& title,
                     const std::string& yLabel, const std::string& label) {
  LinePlot plot;
  plot.title = title;
  plot.xLabel = "position across the edge (pixels)";
  plot.yLabel = yLabel;
  Curve curve;
  curve.label = label;
  const double centre = static_cast<double>(profile.Size()) / 2.0;
  for (std::size_t i = 0; i < profile.Size(); ++i) {
    curve.x.push_back((static_cast<double>(i) - centre) / oversampling);
    curve.y.push_back(profile[i]);
  }
  plot.curves.push_back(curve);
  return plot;
}

void WriteMtfReport(RunContext& run, const MtfOptions& options,
                    const std::vector<std::string>& inputs, const std::vector<std::string>& stems,
                    const std::vector<ImageMeasurement>& measured) {
  const bool mm = options.pixelPitch > 0.0;
  const double scale = mm ? 1000.0 / options.pixelPitch : 1.0;
  ReportTable table;
  table.header = {"image",      "target",     "side",     "angle (deg)",   "MTF50 (c/px)",
                  "MTF50 95 %", "cut (c/px)", "cut 95 %", "efficiency (%)"};
  if (mm) {
    table.header.push_back("MTF50 (lp/mm)");
    table.header.push_back("cut (lp/mm)");
  }
  std::vector<ReportPicture> pictures;
  const EdgeRow* chosen = nullptr;
  std::string chosenStem;
  int index = 0;
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const ImageMeasurement& m = measured[i];
    if (!m.failure.empty()) continue;
    for (const EdgeRow& row : m.rows) {
      ++index;
      if (index == options.plotEdge || chosen == nullptr) {
        chosen = &row;
        chosenStem = stems[i];
      }
      std::vector<std::string> cells = {stems[i],
                                        row.target == 0 ? "-" : std::to_string(row.target),
                                        row.side,
                                        Fixed(row.angle, 2),
                                        Fixed(row.mtf50, 4),
                                        IntervalCell(row.uncertainty.mtf50, 1.0),
                                        Fixed(row.result.cutFrequency, 4),
                                        IntervalCell(row.uncertainty.cutFrequency, 1.0),
                                        Fixed(row.result.efficiency, 2)};
      if (mm) {
        cells.push_back(Fixed(row.mtf50 >= 0.0 ? row.mtf50 * scale : -1.0, 2));
        cells.push_back(
            Fixed(row.result.cutFrequency >= 0.0f ? row.result.cutFrequency * scale : -1.0, 2));
      }
      table.rows.push_back(cells);
    }
    const std::string& stem = stems[i];
    if (!m.chart.empty()) {
      pictures.push_back(FolderPicture(
          run, stem + "_chart.png",
          "Annotated chart " + stem + ": targets, edge regions, cut frequency and efficiency"));
    }
    pictures.push_back(AddCurvePlot(run, MtfCurves(stem, m), stem + "_mtf",
                                    "MTF curves of every edge of " + stem));
  }
  if (chosen != nullptr) {
    const std::string name = chosenStem + " " + ShortName(*chosen);
    pictures.push_back(
        AddCurvePlot(run,
                     ProfilePlot(chosen->result.esf, chosen->oversampling,
                                 "Edge spread function, " + name, "signal (DN)", "ESF"),
                     "esf", "Edge spread function (ESF) of " + name));
    pictures.push_back(AddCurvePlot(
        run,
        ProfilePlot(chosen->result.lsf, chosen->oversampling, "Line spread function, " + name,
                    "derivative (DN per sample)", "LSF (windowed)"),
        "lsf", "Line spread function (LSF) of " + name));
  }
  ReportSection section;
  section.heading = "MTF";
  std::string shown;
  if (options.plotEdge > index && chosen != nullptr) {
    shown = " The ESF and LSF are those of edge 1: --plot-edge " +
            std::to_string(options.plotEdge) + " is beyond the " + std::to_string(index) +
            " measured edges.";
  }
  section.text = std::string(options.edge ? "Single slanted edge" : "Edges of the square targets") +
                 ". MTF50 and the cut frequency (MTF = 0.1) in cycles per pixel with their 95 % "
                 "intervals (jackknife over blocks of rows along the edge); efficiency: the cut "
                 "frequency as a percentage of the Nyquist sample." +
                 shown;
  section.tables.push_back(table);
  section.pictures = pictures;
  WriteRunReport(run, "ombrix mtf", {section});
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

  const std::vector<std::string> stems = OutputStems(options.images);
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
      const std::string name = stems[i] + "_chart.png";
      run.Folder().WriteImage(name, m.chart);
      doc.AddOutput(name, "annotated chart of " + input);
    }
  }
  WriteMtfReport(run, options, options.images, stems, measured);
  run.Finish();
  return exitCode;
}

}  // namespace ombrix_tool
