#include "NoiseCommand.h"

#include <functional>
#include <stdexcept>
#include <thread>

#include "FrameReader.h"
#include "InputFiles.h"
#include "MapSummary.h"
#include "ProgressBar.h"
#include "RectOption.h"
#include "ToolError.h"
#include "ToolReport.h"
#include "stack/TemporalNoise.h"
#include "stack/TemporalNoiseStream.h"

namespace ombrix_tool {

namespace {

const std::vector<int> kFrameDepths = {CV_8U, CV_16U};

// The first pass of either method: checks every frame, hands it to `add`, and records every
// file's SHA-256, all before the output folder exists, so a bad frame leaves nothing behind.
void FirstPass(const std::vector<std::string>& files, const std::string& nameSource,
               RunContext& run, ProgressBar& progress, const cv::Rect* region,
               const std::function<void(const cv::Mat&)>& add) {
  std::vector<std::string> digests(files.size());
  FrameReader(files, NoiseReadAhead(), true)
      .ForEach([&](std::size_t i, const cv::Mat& frame, const std::string& sha256) {
        RequireSingleChannel(frame, files[i], kFrameDepths);
        if (i == 0 && region != nullptr) RequireInside("--region", *region, frame.size(), files[0]);
        try {
          add(frame);
        } catch (const std::invalid_argument& e) {
          throw UsageError(files[i] + ": " + e.what() + " (frame " + std::to_string(i + 1) +
                           " against the first, " + files[0] + ")");
        }
        digests[i] = sha256;
        progress.Advance();
      });
  for (std::size_t i = 0; i < files.size(); ++i) run.Document().AddInput(files[i], digests[i]);
  run.BeginUnhashed(files, nameSource);
}

cv::Mat StreamedNoise(const std::vector<std::string>& files, const std::string& nameSource,
                      RunContext& run, ProgressBar& progress, const cv::Rect* region) {
  CTemporalNoiseStream stream;
  FirstPass(files, nameSource, run, progress, region,
            [&stream](const cv::Mat& frame) { stream.AddSumFrame(frame); });
  FrameReader(files, NoiseReadAhead(), false)
      .ForEach([&](std::size_t i, const cv::Mat& frame, const std::string&) {
        try {
          stream.AddDeviationFrame(frame);
        } catch (const std::invalid_argument& e) {
          // The file changed between the passes.
          throw UsageError(files[i] + ": " + e.what() + " (changed during the run)");
        }
        progress.Advance();
      });
  return stream.StandardDeviation();
}

cv::Mat StackNoise(const std::vector<std::string>& files, const std::string& nameSource,
                   RunContext& run, ProgressBar& progress, const cv::Rect* region) {
  CTemporalNoise stack;
  // The stack keeps (shares) every frame; it reshapes them, so they must be continuous.
  FirstPass(files, nameSource, run, progress, region, [&stack](const cv::Mat& frame) {
    stack.AddImage(frame.isContinuous() ? frame : frame.clone());
  });
  return stack.Compute(
      [&stack](std::vector<unsigned short>& values) { return stack.StandardDeviation(values); });
}

void RecordSummary(RunContext& run, const std::string& subject, const cv::Mat& map,
                   ReportTable& table) {
  const MapSummary summary = SummarizeMap(map);
  ResultsDocument& doc = run.Document();
  doc.AddFigure("", subject, "mean", summary.mean, "DN");
  doc.AddFigure("", subject, "median", summary.median, "DN");
  doc.AddFigure("", subject, "99th percentile", summary.percentile99, "DN");
  doc.AddFigure("", subject, "pixels", static_cast<double>(summary.count), "pixel");
  table.rows.push_back({subject, Fixed(summary.mean, 4), Fixed(summary.median, 4),
                        Fixed(summary.percentile99, 4), std::to_string(summary.count)});
  run.Say("  " + subject + ": mean " + Fixed(summary.mean, 4) + " DN, median " +
          Fixed(summary.median, 4) + " DN, 99th percentile " + Fixed(summary.percentile99, 4) +
          " DN (" + std::to_string(summary.count) + " pixels)");
}

}  // namespace

std::size_t NoiseReadAhead() { return std::max(2u, std::thread::hardware_concurrency()); }

int RunNoise(const NoiseOptions& options, const CommonOptions& common) {
  cv::Rect region;
  const bool hasRegion = !options.region.empty();
  if (hasRegion) region = ParseRect("--region", options.region, 1);
  const std::vector<std::string> files = ExpandFrameArguments(options.frames);
  if (files.size() < 2) {
    throw UsageError(files.front() + ": the temporal noise needs at least two frames, got one");
  }
  for (const std::string& file : files) CheckImageFile(file);

  RunContext run("noise", common);
  cv::Mat map;
  {
    const int passes = options.exactStack ? 1 : 2;
    ProgressBar progress(passes * static_cast<int>(files.size()), "noise", common.quiet);
    const cv::Rect* area = hasRegion ? &region : nullptr;
    map = options.exactStack ? StackNoise(files, options.frames.front(), run, progress, area)
                             : StreamedNoise(files, options.frames.front(), run, progress, area);
  }
  ResultsDocument& doc = run.Document();
  doc.SetSetting("method", options.exactStack ? "stack" : "stream");
  doc.SetSetting("frames", files.size());
  if (hasRegion) doc.SetSetting("region", {region.x, region.y, region.width, region.height});
  doc.AddFigure("", "series", "frames", static_cast<double>(files.size()), "frame");

  run.Folder().WriteImage("noise.tif", map);
  doc.AddOutput("noise.tif", "per-pixel temporal noise, 32-bit float, DN");
  run.Say(std::to_string(files.size()) + " frames of " + std::to_string(map.cols) + " x " +
          std::to_string(map.rows) + ", temporal noise (sample standard deviation)" +
          (options.exactStack ? ", stack statistic" : "") + ":");
  ReportTable table;
  table.header = {"area", "mean (DN)", "median (DN)", "99th percentile (DN)", "pixels"};
  RecordSummary(run, "whole frame", map, table);
  if (hasRegion) {
    const std::string subject = "region " + options.region;
    RecordSummary(run, subject, map(region), table);
  }
  ReportSection section;
  section.heading = "Temporal noise";
  section.text =
      std::to_string(files.size()) + " frames of " + std::to_string(map.cols) + " x " +
      std::to_string(map.rows) + " pixels: per-pixel sample standard deviation over the series" +
      (options.exactStack ? " (stack statistic: its last pixel-count mod 9 pixels stay 0)."
                          : " (two passes over the files).");
  section.tables.push_back(table);
  section.pictures.push_back(AddFalseColour(run, map, "Temporal noise", "DN", "noise_map",
                                            "Temporal noise per pixel (DN)"));
  section.pictures.push_back(AddHistogram(run, map, "Temporal noise histogram",
                                          "temporal noise (DN)", "noise_histogram",
                                          "Histogram of the temporal noise"));
  WriteRunReport(run, "ombrix noise", {section});
  run.Finish();
  return kExitSuccess;
}

}  // namespace ombrix_tool
