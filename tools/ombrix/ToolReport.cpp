#include "ToolReport.h"

#include <stdexcept>

#include "ToolError.h"

namespace ombrix_tool {

namespace {

// The report library names the file in its messages; for the user it is an output that could
// not be written.
template <class Write>
void Guarded(Write write) {
  try {
    write();
  } catch (const ToolError&) {
    throw;
  } catch (const std::runtime_error& e) {
    throw UsageError(e.what());
  }
}

}  // namespace

ReportPicture AddCurvePlot(RunContext& run, const LinePlot& plot, const std::string& stem,
                           const std::string& caption) {
  const std::string png = stem + ".png", svg = stem + ".svg";
  Guarded([&] { PlotCurves(plot, run.Folder().File(png), run.Folder().File(svg)); });
  run.Document().AddOutput(png, plot.title);
  run.Document().AddOutput(svg, plot.title + " (SVG)");
  return ReportPicture{caption, run.Folder().File(png)};
}

ReportPicture AddHistogram(RunContext& run, const cv::Mat& map32f, const std::string& title,
                           const std::string& xLabel, const std::string& stem,
                           const std::string& caption) {
  const std::string png = stem + ".png", svg = stem + ".svg";
  Guarded([&] {
    PlotHistogram(map32f, 200, NAN, NAN, title, xLabel, run.Folder().File(png),
                  run.Folder().File(svg));
  });
  run.Document().AddOutput(png, title);
  run.Document().AddOutput(svg, title + " (SVG)");
  return ReportPicture{caption, run.Folder().File(png)};
}

ReportPicture AddFalseColour(RunContext& run, const cv::Mat& map32f, const std::string& title,
                             const std::string& unit, const std::string& stem,
                             const std::string& caption) {
  const std::string png = stem + ".png";
  Guarded([&] { PlotFalseColour(map32f, NAN, NAN, title, unit, run.Folder().File(png)); });
  run.Document().AddOutput(png, title);
  return ReportPicture{caption, run.Folder().File(png)};
}

ReportPicture FolderPicture(const RunContext& run, const std::string& fileName,
                            const std::string& caption) {
  return ReportPicture{caption, run.Folder().File(fileName)};
}

void WriteRunReport(RunContext& run, const std::string& title,
                    const std::vector<ReportSection>& sections) {
  ReportPage page;
  page.title = title;
  page.toolVersion = OMBRIX_VERSION;
  for (const std::string& argument : run.Options().commandLine) {
    if (!page.commandLine.empty()) page.commandLine += ' ';
    page.commandLine += argument;
  }
  page.sections = sections;
  Guarded([&] { WriteReport(page, run.Folder().File("report.html")); });
  run.Document().AddOutput("report.html", "the report: summary, pictures and plots in one page");
}

}  // namespace ombrix_tool
