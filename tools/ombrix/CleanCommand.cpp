#include "CleanCommand.h"

#include <sstream>

#include "DisplayImage.h"
#include "InputFiles.h"
#include "ParallelFiles.h"
#include "ProgressBar.h"
#include "ToolError.h"
#include "ToolReport.h"
#include "filters/FilterCosmicRay.h"

namespace ombrix_tool {

namespace {

struct CleanedImage {
  cv::Mat cleaned;
  cv::Mat replaced;
  std::string replacedList;  // CSV: x,y,value,median
  int count = 0;
};

void CheckRadius(int radius) {
  if (radius < 1)
    throw UsageError("--radius: must be at least 1 pixel, got " + std::to_string(radius));
}

// Depths the filter takes at this radius (cv::medianBlur's square windows below 3).
std::vector<int> CleanDepths(int radius) {
  if (radius >= 3) return {CV_16U};
  return {CV_8U, CV_16U};
}

std::string ReplacedList(const cv::Mat& source, const cv::Mat& cleaned, const cv::Mat& replaced) {
  std::ostringstream out;
  out << "x,y,value,median\n";
  for (int y = 0; y < replaced.rows; ++y) {
    const uchar* flags = replaced.ptr<uchar>(y);
    for (int x = 0; x < replaced.cols; ++x) {
      if (flags[x] == 0) continue;
      // A replaced pixel took its median's value, so the cleaned image holds the median there.
      const double value =
          source.depth() == CV_8U ? source.at<uchar>(y, x) : source.at<ushort>(y, x);
      const double median =
          cleaned.depth() == CV_8U ? cleaned.at<uchar>(y, x) : cleaned.at<ushort>(y, x);
      out << x << ',' << y << ',' << value << ',' << median << '\n';
    }
  }
  return out.str();
}

CleanedImage CleanImage(const std::string& path, const CleanOptions& options, const cv::Mat& mask) {
  const cv::Mat source = ReadImage(path);
  RequireSingleChannel(source, path, CleanDepths(options.radius));
  if (!mask.empty() && mask.size() != source.size()) {
    throw UsageError(options.mask + ": mask is " + std::to_string(mask.cols) + " x " +
                     std::to_string(mask.rows) + ", " + path + " is " +
                     std::to_string(source.cols) + " x " + std::to_string(source.rows));
  }
  CleanedImage out;
  const CFilterCosmicRay filter(options.radius, options.threshold);
  filter.Process(source, out.cleaned, mask, out.replaced);
  out.count = cv::countNonZero(out.replaced);
  out.replacedList = ReplacedList(source, out.cleaned, out.replaced);
  return out;
}

}  // namespace

int RunClean(const CleanOptions& options, const CommonOptions& common) {
  CheckRadius(options.radius);
  if (options.threshold < 0) {
    throw UsageError("--threshold: must not be negative, got " + std::to_string(options.threshold));
  }
  for (const std::string& image : options.images) CheckImageFile(image);
  cv::Mat mask;
  std::vector<std::string> inputs = options.images;
  if (!options.mask.empty()) {
    mask = ReadImage(options.mask);
    RequireSingleChannel(mask, options.mask, {CV_8U});
    inputs.push_back(options.mask);
  }

  RunContext run("clean", common);
  run.Begin(inputs);
  ResultsDocument& doc = run.Document();
  doc.SetSetting("radius", options.radius);
  doc.SetSetting("threshold", options.threshold);
  if (!options.mask.empty()) doc.SetSetting("mask", options.mask);

  const std::vector<std::string> stems = OutputStems(options.images);
  std::vector<CleanedImage> cleaned(options.images.size());
  {
    ProgressBar progress(static_cast<int>(options.images.size()), "clean", common.quiet);
    ForEachFile(options.images.size(), [&](std::size_t i) {
      cleaned[i] = CleanImage(options.images[i], options, mask);
      // Written by the worker too: the files are independent and the pictures are large.
      const std::string& stem = stems[i];
      run.Folder().WriteImage(stem + "_clean.tif", cleaned[i].cleaned);
      run.Folder().WriteImage(stem + "_replaced.png", cleaned[i].replaced);
      run.Folder().WriteText(stem + "_replaced.csv", cleaned[i].replacedList);
      cleaned[i].cleaned.release();
      cleaned[i].replaced.release();
      progress.Advance();
    });
  }
  for (std::size_t i = 0; i < options.images.size(); ++i) {
    const std::string& input = options.images[i];
    const std::string& stem = stems[i];
    doc.AddFigure(input, "whole image", "replaced pixels", cleaned[i].count, "pixel");
    doc.AddOutput(stem + "_clean.tif", "cleaned image of " + input + ", same depth");
    doc.AddOutput(stem + "_replaced.png", "map of the replaced pixels of " + input + " (255)");
    doc.AddOutput(stem + "_replaced.csv", "replaced pixels of " + input + ": x,y,value,median");
    run.Say(input + ": " + std::to_string(cleaned[i].count) + " pixels replaced (radius " +
            std::to_string(options.radius) + ", threshold " + std::to_string(options.threshold) +
            ")");
  }
  ReportSection section;
  section.heading = "Cosmic-ray filter";
  section.text = "Pixels more than " + std::to_string(options.threshold) +
                 " DN above the median of the disc of radius " + std::to_string(options.radius) +
                 " pixels took the median's value" +
                 (options.mask.empty() ? std::string(".") : " (only inside the mask).");
  ReportTable table;
  table.header = {"image", "replaced pixels", "cleaned image", "replaced pixels list"};
  for (std::size_t i = 0; i < options.images.size(); ++i) {
    const std::string& stem = stems[i];
    table.rows.push_back({options.images[i], std::to_string(cleaned[i].count), stem + "_clean.tif",
                          stem + "_replaced.csv"});
    section.pictures.push_back(FolderPicture(run, stem + "_replaced.png",
                                             "Replaced pixels of " + stem + " (white: replaced)"));
  }
  section.tables.push_back(table);
  WriteRunReport(run, "ombrix clean", {section});
  run.Finish();
  return kExitSuccess;
}

int RunMedian(const MedianOptions& options, const CommonOptions& common) {
  CheckRadius(options.radius);
  const cv::Mat source = ReadImage(options.image);
  RequireSingleChannel(source, options.image, {CV_16U});

  RunContext run("median", common);
  run.Begin({options.image});
  ResultsDocument& doc = run.Document();
  doc.SetSetting("radius", options.radius);
  cv::Mat median;
  CFilterCosmicRay::MedianBlur(source, median, options.radius);
  const std::string name = FileStem(options.image) + "_median.tif";
  run.Folder().WriteImage(name, median);
  doc.AddOutput(name, "disc median of " + options.image + ", 16-bit");
  cv::Mat difference;
  cv::absdiff(source, median, difference);
  const int changed = cv::countNonZero(difference);
  doc.AddFigure(options.image, "whole image", "pixels changed by the median", changed, "pixel");
  ReportSection section;
  section.heading = "Disc median";
  section.text = "Median over the disc of radius " + std::to_string(options.radius) +
                 " pixels (dx^2 + dy^2 <= (radius + 0.5)^2), cut at the image edge.";
  section.tables.push_back(ReportTable{
      {"image", "radius (pixels)", "pixels changed", "median image"},
      {{options.image, std::to_string(options.radius), std::to_string(changed), name}}});
  run.Folder().WriteImage("median_preview.png", DisplayGrey(median));
  doc.AddOutput("median_preview.png", "the median image, contrast-stretched, 8-bit");
  section.pictures.push_back(
      FolderPicture(run, "median_preview.png", "Disc median (contrast stretched)"));
  WriteRunReport(run, "ombrix median", {section});
  run.Say(options.image + ": disc median of radius " + std::to_string(options.radius) +
          " written to " + run.Folder().File(name) + " (" + std::to_string(changed) +
          " pixels changed)");
  run.Finish();
  return kExitSuccess;
}

}  // namespace ombrix_tool
