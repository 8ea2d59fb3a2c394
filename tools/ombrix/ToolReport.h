// The pictures and the page of a run: plots through the report library (PLplot), recorded in the
// results document, and report.html (one self-contained page: the summary table first, then the
// pictures) written into the run's output folder.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "Plots.h"
#include "Report.h"
#include "RunContext.h"

namespace ombrix_tool {

// Writes a line plot (PNG and SVG) named stem.png / stem.svg into the folder, records both, and
// returns the picture for the report. Failures become ToolError (exit 2) naming the file.
ReportPicture AddCurvePlot(RunContext& run, const LinePlot& plot, const std::string& stem,
                           const std::string& caption);

// The histogram and the false-colour picture of a 32-bit float map (PNG; the histogram also SVG).
ReportPicture AddHistogram(RunContext& run, const cv::Mat& map32f, const std::string& title,
                           const std::string& xLabel, const std::string& stem,
                           const std::string& caption);
ReportPicture AddFalseColour(RunContext& run, const cv::Mat& map32f, const std::string& title,
                             const std::string& unit, const std::string& stem,
                             const std::string& caption);

// A picture already written into the folder (e.g. the annotated chart).
ReportPicture FolderPicture(const RunContext& run, const std::string& fileName,
                            const std::string& caption);

// report.html with the run's title, version and command line. Failures become ToolError.
void WriteRunReport(RunContext& run, const std::string& title,
                    const std::vector<ReportSection>& sections);

}  // namespace ombrix_tool
