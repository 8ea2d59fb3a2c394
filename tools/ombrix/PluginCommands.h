// `ombrix dark FOLDER`, `ombrix light FOLDER`, `ombrix spots FRAME`: the processing plug-in's
// dark-chamber inspection, light-source factor and spot detection, run through the scenario
// library's sequences on a plug-in loaded through CFactoryCollection from the executable's own
// folder. Folders are laid out like the scenario folders of the test data (Black_150s.tif,
// Black_1s.tif, RawSignal_*.tif; the frame of `spots` lies beside its two master darks).
#pragma once

#include <string>

#include "RunContext.h"

namespace ombrix_tool {

struct PluginOptions {
  // The folder (dark, light) or the frame (spots).
  std::string path;
  // spots: a control run of the validation rather than a nominal one.
  bool control = false;
};

// Return the process exit code; throw ToolError for usage and input errors.
int RunDark(const PluginOptions& options, const CommonOptions& common);
int RunLight(const PluginOptions& options, const CommonOptions& common);
int RunSpots(const PluginOptions& options, const CommonOptions& common);

// The processing plug-in's module beside the running executable.
std::string ProcessingModulePath();

}  // namespace ombrix_tool
