#include "PluginCommands.h"

#include <filesystem>
#include <opencv2/imgproc.hpp>
#include <sstream>

#include "DisplayImage.h"
#include "ExecutablePath.h"
#include "InputFiles.h"
#include "PluginScenarios.h"
#include "ToolError.h"
#include "ToolReport.h"

namespace fs = std::filesystem;

namespace ombrix_tool {

namespace {

// The plug-in beside the executable, loaded on construction, and the collection that loaded it;
// the object goes before the collection.
struct LoadedPlugin {
  LoadedPlugin() {
    const std::string module = ProcessingModulePath();
    std::error_code code;
    if (!fs::exists(module, code)) {
      throw UsageError(module + ": the processing plug-in is not installed beside ombrix");
    }
    object = scenarios::MakeCheckedProcessingPlugin(collection, module);
    if (!object) throw UsageError(module + ": the processing plug-in cannot be loaded");
  }
  ~LoadedPlugin() { object.reset(); }
  LoadedPlugin(const LoadedPlugin&) = delete;
  LoadedPlugin& operator=(const LoadedPlugin&) = delete;

  CFactoryCollection collection;
  std::shared_ptr<IOmbrixProcessing> object;
};

// Inputs of a dark-reference folder: the two master darks and the raw frames, all present.
std::vector<std::string> DarkReferenceInputs(const std::string& folder) {
  std::error_code code;
  if (!fs::is_directory(folder, code)) throw UsageError(folder + ": no such folder");
  std::vector<std::string> inputs;
  for (const std::string& dark : scenarios::DarkFrameFiles(folder)) {
    CheckImageFile(dark);
    inputs.push_back(dark);
  }
  const std::vector<cv::String> frames = scenarios::RawFrameFiles(folder);
  if (frames.empty()) {
    throw UsageError(folder + ": the folder holds no frames (RawSignal_*.tif)");
  }
  for (const cv::String& frame : frames) {
    CheckImageFile(frame);
    inputs.push_back(frame);
  }
  return inputs;
}

// A run of the plug-in on a dark-reference folder, set up in the order the errors are reported:
// the folder's inputs, then the plug-in, then the output folder.
struct DarkFolderRun {
  DarkFolderRun(const std::string& command, const std::string& path, const CommonOptions& common)
      : folder(path), inputs(DarkReferenceInputs(folder)), run(command, common) {
    run.Begin(inputs, folder);
  }

  // The figure of a scenario sequence on the folder; -1, the plug-in's refusal, is an error.
  float Measure(float (*sequence)(IOmbrixProcessing&, const std::string&)) {
    const float figure = sequence(*plugin.object, folder);
    if (figure == -1.0f) throw MeasurementError(folder + ": the plug-in refused the dark frames");
    return figure;
  }

  const std::string folder;
  const std::vector<std::string> inputs;
  LoadedPlugin plugin;
  RunContext run;
};

cv::Mat SpotOverlay(const cv::Mat& frame, const cv::Mat& mask,
                    const std::vector<DetectedObject>& objects) {
  cv::Mat picture;
  cv::cvtColor(DisplayGrey(frame), picture, cv::COLOR_GRAY2BGR);
  if (!mask.empty() && mask.size() == picture.size()) picture.setTo(cv::Scalar(0, 0, 255), mask);
  for (std::size_t i = 0; i < objects.size(); ++i) {
    const cv::Point centre(cvRound(objects[i].centroidX), cvRound(objects[i].centroidY));
    cv::circle(picture, centre, 8, cv::Scalar(0, 255, 0), 1, cv::LINE_AA);
    cv::putText(picture, std::to_string(i + 1), centre + cv::Point(9, -9), cv::FONT_HERSHEY_SIMPLEX,
                0.4, cv::Scalar(0, 255, 255), 1, cv::LINE_AA);
  }
  return picture;
}

std::string NameOf(const std::string& path) {
  fs::path p(path);
  if (!p.has_filename()) p = p.parent_path();
  return p.filename().string();
}

}  // namespace

std::string ProcessingModulePath() {
  return (platform::ExecutableFolder() / OMBRIX_PROCESSING_FILE).string();
}

int RunDark(const PluginOptions& options, const CommonOptions& common) {
  DarkFolderRun dark("dark", options.path, common);
  const float value = dark.Measure(scenarios::RunDarkChamberSequence);
  const std::string& folder = dark.folder;
  RunContext& run = dark.run;
  const cv::Mat map = dark.plugin.object->GetDefectMap();
  ResultsDocument& doc = run.Document();
  doc.AddFigure(folder, "dark chamber", "defects", value, "count");
  const int defectPixels = map.empty() ? 0 : cv::countNonZero(map);
  doc.AddFigure(folder, "dark chamber", "defect pixels", defectPixels, "pixel");
  if (!map.empty()) {
    run.Folder().WriteImage("defect_map.png", map);
    doc.AddOutput("defect_map.png", "defect regions of the dark chamber (255)");
  }
  run.Say(folder + ": " + std::to_string(static_cast<int>(value)) + " defects (" +
          std::to_string(defectPixels) + " pixels), " + (value > 0.0f ? "not clean" : "clean"));
  ReportSection section;
  section.heading = "Dark-chamber inspection";
  section.text =
      "The processing plug-in's defect count on the minimum of the dark-subtracted raw "
      "frames; 0 or less means a clean dark chamber.";
  section.tables.push_back(ReportTable{
      {"folder", "raw frames", "defects", "defect pixels", "verdict"},
      {{folder, std::to_string(dark.inputs.size() - 2), std::to_string(static_cast<int>(value)),
        std::to_string(defectPixels), value > 0.0f ? "not clean" : "clean"}}});
  if (!map.empty()) {
    section.pictures.push_back(
        FolderPicture(run, "defect_map.png", "Defect regions (white) of the dark chamber"));
  }
  WriteRunReport(run, "ombrix dark", {section});
  run.Finish();
  return kExitSuccess;
}

int RunLight(const PluginOptions& options, const CommonOptions& common) {
  DarkFolderRun light("light", options.path, common);
  const float factor = light.Measure(scenarios::RunLightSourceSequence);
  const std::string& folder = light.folder;
  RunContext& run = light.run;
  run.Document().AddFigure(folder, "light source", "factor", factor, "");
  char line[64];
  std::snprintf(line, sizeof line, "%.7g", static_cast<double>(factor));
  run.Say(folder + ": light-source factor " + line);
  ReportSection section;
  section.heading = "Light-source factor";
  section.text =
      "The processing plug-in's correction factor of the light source, from the "
      "minimum of the dark-subtracted raw frames.";
  section.tables.push_back(ReportTable{{"folder", "raw frames", "factor"},
                                       {{folder, std::to_string(light.inputs.size() - 2), line}}});
  // The first raw frame as the user would look at it (the plug-in works on all of them).
  run.Folder().WriteImage("first_frame.png", DisplayGrey(ReadImage(light.inputs[2])));
  run.Document().AddOutput("first_frame.png", "the first raw frame, contrast-stretched, 8-bit");
  section.pictures.push_back(
      FolderPicture(run, "first_frame.png",
                    "First raw frame " + FileStem(light.inputs[2]) + " (contrast stretched)"));
  WriteRunReport(run, "ombrix light", {section});
  run.Finish();
  return kExitSuccess;
}

int RunSpots(const PluginOptions& options, const CommonOptions& common) {
  const std::string frame = options.path;
  const cv::Mat image = ReadImage(frame);
  RequireSingleChannel(image, frame, {CV_8U, CV_16U});
  fs::path folderPath = fs::path(frame).parent_path();
  const std::string folder = folderPath.empty() ? std::string(".") : folderPath.string();
  std::vector<std::string> inputs = {frame};
  for (const std::string& dark : scenarios::DarkFrameFiles(folder)) {
    CheckImageFile(dark);
    inputs.push_back(dark);
  }
  LoadedPlugin plugin;
  RunContext run("spots", common);
  run.Begin(inputs);
  ResultsDocument& doc = run.Document();
  doc.SetSetting("mode", options.control ? "control" : "nominal");
  const scenarios::DetectionOutput output = scenarios::RunDetectionSequence(
      *plugin.object, folder, NameOf(frame), ValidationAlgoParameters(!options.control));
  if (!output.completed) throw MeasurementError(folder + ": the plug-in refused the dark frames");

  std::ostringstream csv;
  csv << "object,centroid_x,centroid_y,area,peak,circularity\n";
  doc.AddFigure(frame, "frame", "objects", static_cast<double>(output.objects.size()), "count");
  for (std::size_t i = 0; i < output.objects.size(); ++i) {
    const DetectedObject& o = output.objects[i];
    const std::string subject = "object " + std::to_string(i + 1);
    doc.AddFigure(frame, subject, "centroid x", o.centroidX, "pixel");
    doc.AddFigure(frame, subject, "centroid y", o.centroidY, "pixel");
    doc.AddFigure(frame, subject, "area", o.area, "pixel");
    doc.AddFigure(frame, subject, "peak", o.peak, "DN");
    doc.AddFigure(frame, subject, "circularity", o.circularity, "");
    csv.precision(17);
    csv << i + 1 << ',' << o.centroidX << ',' << o.centroidY << ',' << o.area << ',' << o.peak
        << ',' << o.circularity << '\n';
  }
  run.Folder().WriteText("objects.csv", csv.str());
  doc.AddOutput("objects.csv", "detected objects: centroid, area, peak, circularity");
  run.Folder().WriteImage("spots_overlay.png",
                          SpotOverlay(image, output.overlayImage, output.objects));
  doc.AddOutput("spots_overlay.png", "the frame with the detected objects marked and numbered");
  run.Say(frame + ": " + std::to_string(output.objects.size()) + " objects (" +
          (options.control ? "control" : "nominal") + " run)");
  char line[160];
  for (std::size_t i = 0; i < output.objects.size() && i < 20; ++i) {
    const DetectedObject& o = output.objects[i];
    std::snprintf(line, sizeof line,
                  "  %3zu  centroid %8.2f %8.2f  area %6.0f px  peak %6d DN  "
                  "circularity %.3f",
                  i + 1, o.centroidX, o.centroidY, o.area, o.peak, o.circularity);
    run.Say(line);
  }
  if (output.objects.size() > 20) run.Say("  ... (all objects in objects.csv)");
  ReportSection section;
  section.heading = "Spot detection";
  section.text = std::to_string(output.objects.size()) + " objects found by the processing " +
                 "plug-in's detection (" + (options.control ? "control" : "nominal") + " run).";
  ReportTable table;
  table.header = {"object",    "centroid x (px)", "centroid y (px)",
                  "area (px)", "peak (DN)",       "circularity"};
  for (std::size_t i = 0; i < output.objects.size(); ++i) {
    const DetectedObject& o = output.objects[i];
    table.rows.push_back({std::to_string(i + 1), Fixed(o.centroidX, 2), Fixed(o.centroidY, 2),
                          Fixed(o.area, 0), std::to_string(o.peak), Fixed(o.circularity, 3)});
  }
  section.tables.push_back(table);
  section.pictures.push_back(FolderPicture(
      run, "spots_overlay.png", "The frame with the detected objects (red) circled and numbered"));
  WriteRunReport(run, "ombrix spots", {section});
  run.Finish();
  return kExitSuccess;
}

}  // namespace ombrix_tool
