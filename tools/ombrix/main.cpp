// ombrix: the processing core's measurements on a user's own images, from the command line.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "CleanCommand.h"
#include "MtfCommand.h"
#include "NoiseCommand.h"
#include "PluginCommands.h"
#include "ToolError.h"

using namespace ombrix_tool;

namespace {

void AddCommonOptions(CLI::App* command, CommonOptions& common) {
  command->add_option("--out", common.out,
                      "Output folder (default: a new folder <input>_<command> in the working "
                      "directory)");
  command->add_flag("--force", common.force, "Write into an existing output folder");
  command->add_flag("--json", common.json,
                    "Print results.json on standard output instead of the summary");
  command->add_flag("--quiet", common.quiet, "No summary and no progress bar");
}

// One line on standard error: the file or option and the reason.
int Fail(int code, const std::string& message) {
  std::cerr << "ombrix: " << message << std::endl;
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"ombrix " OMBRIX_VERSION
               ": the Ombrix processing core's measurements on your own images. Results go to an "
               "output folder: results.json, results.csv, PNG pictures, plots and report.html.",
               "ombrix"};
  app.set_version_flag("--version", std::string("ombrix ") + OMBRIX_VERSION);
  app.require_subcommand(1, 1);

  CommonOptions common;
  for (int i = 0; i < argc; ++i) common.commandLine.emplace_back(argv[i]);

  MtfOptions mtf;
  CLI::App* mtfCommand = app.add_subcommand(
      "mtf",
      "MTF of every edge of the square targets of a chart (or of one slanted edge). Per edge: "
      "fitted angle (degrees), MTF50 and cut frequency (MTF = 0.1) in cycles/pixel (and line "
      "pairs/mm with --pixel-pitch) with their 95 % intervals, efficiency (% of Nyquist)");
  mtfCommand->add_option("IMAGE", mtf.images, "Chart or edge images (any depth)")->required();
  mtfCommand->add_flag("--edge", mtf.edge,
                       "Measure the whole image (or --roi) as one slanted edge");
  mtfCommand->add_option("--roi", mtf.roi, "x,y,w,h: the edge region in pixels (implies --edge)");
  mtfCommand
      ->add_option("--pixel-pitch", mtf.pixelPitch,
                   "Pixel pitch in microns; adds frequencies in line pairs/mm (0: none)")
      ->capture_default_str();
  mtfCommand
      ->add_option("--gamma", mtf.gamma,
                   "Sensor response exponent; values are raised to 1/gamma (1: linear)")
      ->capture_default_str();
  mtfCommand
      ->add_option("--plot-edge", mtf.plotEdge,
                   "Edge (row of the table, from 1) whose ESF and LSF are plotted")
      ->capture_default_str();

  CleanOptions clean;
  CLI::App* cleanCommand = app.add_subcommand(
      "clean", "Cosmic-ray filter: bright outliers above the disc median take its value");
  cleanCommand->add_option("IMAGE", clean.images, "16-bit (or, radius 1-2, 8-bit) images")
      ->required();
  cleanCommand->add_option("--radius", clean.radius, "Disc radius of the median, pixels")
      ->required();
  cleanCommand
      ->add_option("--threshold", clean.threshold,
                   "Replace pixels more than this above the median, DN")
      ->required();
  cleanCommand->add_option("--mask", clean.mask,
                           "8-bit mask of the image's size: only non-zero pixels are replaced");

  MedianOptions median;
  CLI::App* medianCommand =
      app.add_subcommand("median", "Disc median (dx^2 + dy^2 <= (R + 0.5)^2, cut at the edge)");
  medianCommand->add_option("IMAGE", median.image, "16-bit unsigned image")->required();
  medianCommand->add_option("--radius", median.radius, "Disc radius, pixels")->required();

  NoiseOptions noise;
  CLI::App* noiseCommand = app.add_subcommand(
      "noise", "Per-pixel temporal noise (sample standard deviation) of a frame series");
  noiseCommand->add_option("FRAMES", noise.frames, "Frame files, folders or glob patterns")
      ->required();
  noiseCommand->add_option("--region", noise.region,
                           "x,y,w,h: a region whose summary is given too, pixels");
  noiseCommand->add_flag("--exact-stack", noise.exactStack,
                         "Hold every frame in memory and use the stack statistic as it is "
                         "(its last pixel-count mod 9 pixels stay 0)");

  PluginOptions dark;
  CLI::App* darkCommand = app.add_subcommand(
      "dark",
      "Dark-chamber inspection of a folder (Black_150s.tif, Black_1s.tif, RawSignal_*.tif)");
  darkCommand->add_option("FOLDER", dark.path, "Dark-chamber folder")->required();

  PluginOptions light;
  CLI::App* lightCommand = app.add_subcommand(
      "light", "Light-source factor of a folder (Black_150s.tif, Black_1s.tif, RawSignal_*.tif)");
  lightCommand->add_option("FOLDER", light.path, "Light-source folder")->required();

  PluginOptions spots;
  CLI::App* spotsCommand = app.add_subcommand(
      "spots", "Spot detection on a frame whose folder holds Black_150s.tif and Black_1s.tif");
  spotsCommand->add_option("FRAME", spots.path, "Frame to search")->required();
  spotsCommand->add_flag("--control", spots.control,
                         "Control run (the validation's positive and negative controls)");

  // Every subcommand ends with the common options. CLI11 would report a mistyped subcommand as a
  // missing one; name it instead.
  bool known = argc < 2 || argv[1][0] == '-';
  for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
    AddCommonOptions(command, common);
    known = known || command->get_name() == argv[1];
  }
  if (!known) {
    return Fail(kExitUsage, std::string(argv[1]) +
                                ": unknown subcommand (mtf, clean, median, noise, dark, light, "
                                "spots; see ombrix --help)");
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    return Fail(kExitUsage, std::string(e.what()) + " (see ombrix --help)");
  }

  try {
    if (*mtfCommand) return RunMtf(mtf, common);
    if (*cleanCommand) return RunClean(clean, common);
    if (*medianCommand) return RunMedian(median, common);
    if (*noiseCommand) return RunNoise(noise, common);
    if (*darkCommand) return RunDark(dark, common);
    if (*lightCommand) return RunLight(light, common);
    if (*spotsCommand) return RunSpots(spots, common);
  } catch (const ToolError& e) {
    return Fail(e.ExitCode(), e.what());
  } catch (const cv::Exception& e) {
    return Fail(kExitMeasurement, "the measurement failed: " + e.msg);
  } catch (const std::exception& e) {
    return Fail(kExitMeasurement, std::string("the measurement failed: ") + e.what());
  }
  return Fail(kExitUsage, "no subcommand (see ombrix --help)");
}
