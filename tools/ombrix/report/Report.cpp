#include "Report.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "AtomicFile.h"

namespace ombrix_tool {

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(path + ": cannot read (" + std::strerror(errno) + ")");
  std::ostringstream bytes;
  bytes << in.rdbuf();
  if (in.bad()) throw std::runtime_error(path + ": cannot read");
  return bytes.str();
}

bool StartsWith(const std::string& bytes, const char* prefix, std::size_t length) {
  return bytes.size() >= length && bytes.compare(0, length, prefix, length) == 0;
}

// The media type from the file's first bytes, not its name: a picture that is not one of these
// would not decode in a browser, so it is refused here.
std::string MediaType(const std::string& bytes, const std::string& path) {
  if (StartsWith(bytes, "\x89PNG\r\n\x1a\n", 8)) return "image/png";
  if (StartsWith(bytes, "\xff\xd8\xff", 3)) return "image/jpeg";
  if (StartsWith(bytes, "GIF87a", 6) || StartsWith(bytes, "GIF89a", 6)) return "image/gif";
  const std::size_t start = bytes.find_first_not_of(" \t\r\n");
  if (start != std::string::npos &&
      (bytes.compare(start, 5, "<?xml") == 0 || bytes.compare(start, 4, "<svg") == 0) &&
      bytes.find("<svg") != std::string::npos) {
    return "image/svg+xml";
  }
  throw std::runtime_error(path + ": not a PNG, JPEG, GIF or SVG picture");
}

// Cells that hold one number are right-aligned, so that columns of figures line up.
bool IsNumber(const std::string& text) {
  if (text.empty()) return false;
  char* end = nullptr;
  std::strtod(text.c_str(), &end);
  return end == text.c_str() + text.size();
}

void WriteParagraphs(std::ostringstream& html, const std::string& text) {
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find("\n\n", start);
    if (end == std::string::npos) end = text.size();
    const std::string paragraph = text.substr(start, end - start);
    if (paragraph.find_first_not_of(" \t\n") != std::string::npos) {
      std::string escaped = EscapeHtml(paragraph);
      std::string withBreaks;
      for (char c : escaped) {
        if (c == '\n') {
          withBreaks += "<br>\n";
        } else {
          withBreaks += c;
        }
      }
      html << "<p>" << withBreaks << "</p>\n";
    }
    start = end + 2;
  }
}

void WriteTable(std::ostringstream& html, const ReportTable& table, bool summary,
                const std::string& where, const std::string& htmlPath) {
  for (std::size_t r = 0; r < table.rows.size(); ++r) {
    if (!table.header.empty() && table.rows[r].size() != table.header.size()) {
      throw std::runtime_error(htmlPath + ": " + where + ": row " + std::to_string(r + 1) +
                               " has " + std::to_string(table.rows[r].size()) +
                               " cells, the header " + std::to_string(table.header.size()));
    }
  }
  html << "<table class=\"" << (summary ? "summary" : "data") << "\">\n";
  if (!table.header.empty()) {
    html << "<thead><tr>";
    for (const std::string& cell : table.header) html << "<th>" << EscapeHtml(cell) << "</th>";
    html << "</tr></thead>\n";
  }
  html << "<tbody>\n";
  for (const auto& row : table.rows) {
    html << "<tr>";
    for (const std::string& cell : row) {
      html << (IsNumber(cell) ? "<td class=\"number\">" : "<td>") << EscapeHtml(cell) << "</td>";
    }
    html << "</tr>\n";
  }
  html << "</tbody>\n</table>\n";
}

const char kStyle[] = R"(body{font-family:sans-serif;margin:2em auto;max-width:64em;color:#222}
h1{font-size:1.6em}h2{font-size:1.3em;border-bottom:1px solid #ccc;padding-bottom:.2em}
.run{color:#555}.run code{background:#f4f4f4;padding:.1em .3em;word-break:break-all}
table{border-collapse:collapse;margin:1em 0}th,td{border:1px solid #bbb;padding:.25em .6em}
th{background:#eee;text-align:left}td.number{text-align:right;font-variant-numeric:tabular-nums}
table.summary th{background:#dde8f3}figure{margin:1em 0}img{max-width:100%;height:auto}
figcaption{color:#555;font-size:.9em})";

}  // namespace

std::string EscapeHtml(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string EncodeBase64(const std::string& bytes) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  encoded.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const unsigned v = static_cast<unsigned char>(bytes[i]) << 16 |
                       static_cast<unsigned char>(bytes[i + 1]) << 8 |
                       static_cast<unsigned char>(bytes[i + 2]);
    encoded += kAlphabet[v >> 18 & 63];
    encoded += kAlphabet[v >> 12 & 63];
    encoded += kAlphabet[v >> 6 & 63];
    encoded += kAlphabet[v & 63];
  }
  const std::size_t rest = bytes.size() - i;
  if (rest > 0) {
    unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
    if (rest == 2) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    encoded += kAlphabet[v >> 18 & 63];
    encoded += kAlphabet[v >> 12 & 63];
    encoded += rest == 2 ? kAlphabet[v >> 6 & 63] : '=';
    encoded += '=';
  }
  return encoded;
}

void WriteReport(const ReportPage& page, const std::string& htmlPath) {
  std::ostringstream html;
  html << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
       << "<title>" << EscapeHtml(page.title) << "</title>\n<style>" << kStyle
       << "</style>\n</head>\n<body>\n<h1>" << EscapeHtml(page.title) << "</h1>\n"
       << "<p class=\"run\">ombrix " << EscapeHtml(page.toolVersion);
  if (!page.commandLine.empty())
    html << " &middot; <code>" << EscapeHtml(page.commandLine) << "</code>";
  html << "</p>\n";
  for (std::size_t s = 0; s < page.sections.size(); ++s) {
    const ReportSection& section = page.sections[s];
    html << "<section>\n<h2>" << EscapeHtml(section.heading) << "</h2>\n";
    WriteParagraphs(html, section.text);
    for (std::size_t t = 0; t < section.tables.size(); ++t) {
      WriteTable(html, section.tables[t], t == 0,
                 "section \"" + section.heading + "\", table " + std::to_string(t + 1), htmlPath);
    }
    for (const ReportPicture& picture : section.pictures) {
      const std::string bytes = ReadFile(picture.pngPath);
      const std::string type = MediaType(bytes, picture.pngPath);
      html << "<figure>\n<img src=\"data:" << type << ";base64," << EncodeBase64(bytes)
           << "\" alt=\"" << EscapeHtml(picture.caption) << "\">\n<figcaption>"
           << EscapeHtml(picture.caption) << "</figcaption>\n</figure>\n";
    }
    html << "</section>\n";
  }
  html << "</body>\n</html>\n";

  CAtomicFile file(htmlPath);
  file.Write(html.str());
  file.Commit();
}

}  // namespace ombrix_tool
