// The ombrix tool's HTML report: one self-contained page (pictures embedded as base64 data: URIs,
// no script, no network access) with the run's title, tool version and command line, then one
// section per measurement with its text, tables and pictures. Pictures: PNG, JPEG, GIF or SVG.
#pragma once

#include <string>
#include <vector>

namespace ombrix_tool {

struct ReportTable {
  std::vector<std::string> header;
  std::vector<std::vector<std::string>> rows;  // as many cells as the header (any with no header)
};
struct ReportPicture {
  std::string caption;
  std::string pngPath;
};
struct ReportSection {
  std::string heading;
  std::string text;  // blank lines separate paragraphs
  std::vector<ReportTable> tables;
  std::vector<ReportPicture> pictures;
};
struct ReportPage {
  std::string title;
  std::string toolVersion;
  std::string commandLine;
  std::vector<ReportSection> sections;
};

// One self-contained HTML page: pictures embedded as data: URIs (base64), no network access,
// text HTML-escaped. The summary table of a measurement has the CSS class "summary": it is the
// first table of each section (the others have the class "data"). Throws
// std::runtime_error("<path>: <reason>") naming the picture that cannot be read or the page that
// cannot be written; writes to a temporary name and renames.
void WriteReport(const ReportPage& page, const std::string& htmlPath);

// The text with &, <, >, " and ' replaced by their character references.
std::string EscapeHtml(const std::string& text);

// Standard base64 (RFC 4648) with padding, no line breaks.
std::string EncodeBase64(const std::string& bytes);

}  // namespace ombrix_tool
