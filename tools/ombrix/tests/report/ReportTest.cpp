// The HTML report: every picture embedded as a data: URI of its exact bytes, text escaped, the
// summary table marked, and errors that name the file at fault and leave no page behind.
#include <gtest/gtest.h>

#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

#include "Report.h"
#include "TemporaryFolder.h"
#include "WrittenFiles.h"

using namespace ombrix_tool;
using namespace ombrix_tool_test;

namespace {

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::size_t Occurrences(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++count;
  }
  return count;
}

// A small PNG whose bytes differ with the value.
std::string WritePng(const std::string& path, int value) {
  cv::Mat picture(7, 5, CV_8UC3, cv::Scalar(value, 255 - value, 3));
  EXPECT_TRUE(cv::imwrite(path, picture));
  return path;
}

ReportTable EdgeTable(int rows) {
  ReportTable table{{"edge", "MTF50 (cycles/pixel)"}, {}};
  for (int r = 0; r < rows; ++r) table.rows.push_back({std::to_string(r + 1), "0.25"});
  return table;
}

// A page with a placeholder title, version 1 and no command line.
ReportPage PageOf(std::vector<ReportSection> sections) {
  return ReportPage{"t", "1", "", std::move(sections)};
}

// The page written into the folder as report.html, read back.
std::string WrittenHtml(const CTemporaryFolder& folder, const ReportPage& page) {
  WriteReport(page, folder / "report.html");
  return ReadText(folder / "report.html");
}

}  // namespace

TEST(Report, Base64MatchesTheStandardVectors) {
  EXPECT_EQ(EncodeBase64(""), "");
  EXPECT_EQ(EncodeBase64("f"), "Zg==");
  EXPECT_EQ(EncodeBase64("fo"), "Zm8=");
  EXPECT_EQ(EncodeBase64("foo"), "Zm9v");
  EXPECT_EQ(EncodeBase64("foob"), "Zm9vYg==");
  EXPECT_EQ(EncodeBase64("fooba"), "Zm9vYmE=");
  EXPECT_EQ(EncodeBase64("foobar"), "Zm9vYmFy");
  EXPECT_EQ(EncodeBase64(std::string("\x00\xff\xfe", 3)), "AP/+");
}

TEST(Report, EveryPictureIsEmbeddedAsADataUriOfItsBytes) {
  CTemporaryFolder folder;
  ReportPage page{"MTF", "0.1", "ombrix mtf a.tif", {}};
  page.sections.push_back({"a.tif",
                           "",
                           {EdgeTable(2)},
                           {{"MTF curves", WritePng(folder / "one.png", 10)},
                            {"Chart", WritePng(folder / "two.png", 200)}}});
  const std::string svg =
      "<?xml version=\"1.0\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"4\" "
      "height=\"4\"><rect width=\"4\" height=\"4\"/></svg>\n";
  WriteText(folder / "three.svg", svg);
  page.sections.push_back({"b.tif", "", {}, {{"Histogram", folder / "three.svg"}}});
  const std::string html = WrittenHtml(folder, page);
  for (const char* name : {"one.png", "two.png"}) {
    const std::string uri =
        "src=\"data:image/png;base64," + EncodeBase64(ReadText(folder / name)) + "\"";
    EXPECT_EQ(Occurrences(html, uri), 1u) << name;
  }
  EXPECT_EQ(Occurrences(html, "src=\"data:image/svg+xml;base64," + EncodeBase64(svg) + "\""), 1u);
  // Nothing refers outside the page: every src is a data: URI, and there is no link or script.
  EXPECT_EQ(Occurrences(html, "src=\""), 3u);
  EXPECT_EQ(Occurrences(html, "src=\"data:"), 3u);
  for (const char* outside : {"<link", "<script", "http://", "https://"}) {
    EXPECT_EQ(Occurrences(html, outside), 0u) << outside;
  }
  EXPECT_NE(html.find("<meta charset=\"utf-8\">"), std::string::npos);
}

TEST(Report, TextIsEscapedEverywhere) {
  CTemporaryFolder folder;
  const std::string nasty = "<script>alert('x')</script> & \"quoted\"";
  const std::string escaped =
      "&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt; &amp; &quot;quoted&quot;";
  ReportPage page{nasty, nasty, nasty, {}};
  ReportTable table{{nasty}, {{nasty}}};
  page.sections.push_back({nasty, nasty, {table}, {{nasty, WritePng(folder / "p.png", 1)}}});
  const std::string html = WrittenHtml(folder, page);
  EXPECT_EQ(html.find("<script"), std::string::npos);
  EXPECT_EQ(html.find("\"quoted\""), std::string::npos);
  // Title (twice: <title> and <h1>), version, command line, heading, text, header cell, cell,
  // alt text and caption.
  EXPECT_EQ(Occurrences(html, escaped), 10u);
  EXPECT_EQ(EscapeHtml("a<b>&'\""), "a&lt;b&gt;&amp;&#39;&quot;");
}

TEST(Report, ParagraphsAndLineBreaksOfTheText) {
  CTemporaryFolder folder;
  const std::string html =
      WrittenHtml(folder, PageOf({{"s", "first line\nsecond line\n\nnext paragraph", {}, {}}}));
  EXPECT_NE(html.find("<p>first line<br>\nsecond line</p>"), std::string::npos);
  EXPECT_NE(html.find("<p>next paragraph</p>"), std::string::npos);
}

TEST(Report, FirstTableOfASectionIsTheSummary) {
  CTemporaryFolder folder;
  const std::string html =
      WrittenHtml(folder, PageOf({{"first", "", {EdgeTable(3), EdgeTable(1)}, {}},
                                  {"second", "", {EdgeTable(2)}, {}}}));
  EXPECT_EQ(Occurrences(html, "<table class=\"summary\">"), 2u);
  EXPECT_EQ(Occurrences(html, "<table class=\"data\">"), 1u);
  EXPECT_EQ(Occurrences(html, "<table"), 3u);
  // Header rows are in thead, every data row in tbody: 3 + 1 + 2 body rows, 3 header rows.
  EXPECT_EQ(Occurrences(html, "<tr>"), 9u);
  EXPECT_EQ(Occurrences(html, "<th>"), 6u);
  EXPECT_EQ(Occurrences(html, "<td class=\"number\">0.25</td>"), 6u);
  // The summary of the first section comes before its second table.
  EXPECT_LT(html.find("class=\"summary\""), html.find("class=\"data\""));
}

TEST(Report, MissingFolderRaisesAnErrorNamingThePath) {
  CTemporaryFolder folder;
  const std::string path = folder / "missing/report.html";
  const std::string error = ErrorOf([&] { WriteReport(PageOf({}), path); });
  EXPECT_TRUE(StartsWith(error, path + ": ")) << error;
  EXPECT_TRUE(folder.Entries().empty());
}

TEST(Report, MissingOrUnknownPictureNamesThePictureAndKeepsTheOldPage) {
  CTemporaryFolder folder;
  const std::string path = folder / "report.html";
  WriteText(path, "previous page");
  ReportPage page = PageOf({{"s", "", {}, {{"gone", folder / "gone.png"}}}});
  std::string error = ErrorOf([&] { WriteReport(page, path); });
  EXPECT_TRUE(StartsWith(error, folder / "gone.png" + ": ")) << error;

  WriteText(folder / "notes.png", "this is not a picture");
  page.sections[0].pictures = {{"text", folder / "notes.png"}};
  error = ErrorOf([&] { WriteReport(page, path); });
  EXPECT_TRUE(StartsWith(error, folder / "notes.png" + ": ")) << error;

  EXPECT_EQ(ReadText(path), "previous page");
  std::vector<std::string> entries = folder.Entries();
  std::sort(entries.begin(), entries.end());
  EXPECT_EQ(entries, (std::vector<std::string>{"notes.png", "report.html"}));
}

TEST(Report, RowWithTheWrongCellCountIsRefused) {
  CTemporaryFolder folder;
  const std::string path = folder / "report.html";
  ReportTable table = EdgeTable(2);
  table.rows[1].push_back("extra");
  const ReportPage page = PageOf({{"s", "", {table}, {}}});
  const std::string error = ErrorOf([&] { WriteReport(page, path); });
  EXPECT_TRUE(StartsWith(error, path + ": ")) << error;
  EXPECT_NE(error.find("row 2"), std::string::npos) << error;
  EXPECT_TRUE(folder.Entries().empty());
}

TEST(Report, RewritingReplacesThePageWhole) {
  CTemporaryFolder folder;
  const std::string path = folder / "report.html";
  WriteText(path, std::string(100000, 'x'));
  WriteReport(ReportPage{"short", "1", "", {}}, path);
  const std::string html = ReadText(path);
  EXPECT_EQ(html.find('x' + std::string(10, 'x')), std::string::npos);
  EXPECT_EQ(html.rfind("</html>\n"), html.size() - 8);
  EXPECT_EQ(folder.Entries(), std::vector<std::string>{"report.html"});
}
