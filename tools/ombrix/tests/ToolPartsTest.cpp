// The tool's own small parts: SHA-256 against the published test vectors, the map summary's
// percentiles, the x,y,w,h options, default output names, the results document's CSV.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <string>

#include "InputFiles.h"
#include "MapSummary.h"
#include "RectOption.h"
#include "ResultsDocument.h"
#include "Sha256.h"
#include "ToolError.h"

namespace {

using namespace ombrix_tool;

TEST(ToolSha256, KnownVectors) {
  // FIPS 180-2 examples.
  EXPECT_EQ(Sha256OfBytes(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Sha256OfBytes("abc"),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Sha256OfBytes("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(Sha256OfBytes(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(ToolSha256, PiecewiseDigestEqualsTheWhole) {
  // The million-'a' vector fed in uneven pieces, as a reader hashes a file chunk by chunk.
  const std::string bytes(1000000, 'a');
  for (const std::size_t piece :
       {std::size_t(1), std::size_t(63), std::size_t(64), std::size_t(65), std::size_t(1) << 20}) {
    Sha256Digest digest;
    for (std::size_t done = 0; done < bytes.size(); done += piece) {
      digest.Update(bytes.data() + done, std::min(piece, bytes.size() - done));
    }
    EXPECT_EQ(digest.Finish(), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0")
        << "pieces of " << piece;
  }
}

TEST(ToolMapSummary, MeanMedianAndPercentileInterpolateBetweenSortedValues) {
  // 1..100 shuffled in a 10 x 10 map, plus a NaN that is left out.
  cv::Mat map(10, 11, CV_32F, cv::Scalar(std::nanf("")));
  for (int i = 0; i < 100; ++i)
    map.at<float>((i * 37) % 100 / 10, (i * 37) % 100 % 10) = float(i + 1);
  const MapSummary summary = SummarizeMap(map);
  EXPECT_EQ(summary.count, 100);
  EXPECT_DOUBLE_EQ(summary.mean, 50.5);
  EXPECT_DOUBLE_EQ(summary.median, 50.5);
  // Position 0.99 x 99 = 98.01 between the values 99 and 100.
  EXPECT_NEAR(summary.percentile99, 99.01, 1e-12);
  const MapSummary empty = SummarizeMap(cv::Mat(3, 3, CV_32F, cv::Scalar(std::nanf(""))));
  EXPECT_EQ(empty.count, 0);
  EXPECT_EQ(empty.mean, -1.0);
}

TEST(ToolRectOption, ParsesAndRefusesWithTheOptionName) {
  EXPECT_EQ(ParseRect("--roi", "1,2,30,40", 6), cv::Rect(1, 2, 30, 40));
  for (const char* bad : {"1,2,3", "a,b,c,d", "1,2,30,40,5", "1;2;30;40", "-1,0,10,10", "0,0,5,10",
                          "0,0,99999999999,10"}) {
    try {
      ParseRect("--roi", bad, 6);
      ADD_FAILURE() << bad;
    } catch (const ToolError& e) {
      EXPECT_EQ(e.ExitCode(), 2);
      EXPECT_EQ(std::string(e.what()).rfind("--roi: ", 0), 0u) << e.what();
    }
  }
  EXPECT_NO_THROW(RequireInside("--region", cv::Rect(0, 0, 10, 10), cv::Size(10, 10), "a.tif"));
  EXPECT_THROW(RequireInside("--region", cv::Rect(1, 0, 10, 10), cv::Size(10, 10), "a.tif"),
               ToolError);
}

TEST(ToolInputName, FilesFoldersAndPatterns) {
  EXPECT_EQ(InputName("a/b/Frame_01.tif"), "Frame_01");
  EXPECT_EQ(InputName("/tmp/"), "tmp");
  EXPECT_EQ(InputName("/tmp"), "tmp");
  EXPECT_EQ(InputName("/tmp/*.tif"), "tmp");
}

TEST(ToolResultsDocument, CsvQuotesAndIntervals) {
  ResultsDocument document("mtf", {"ombrix", "mtf", "a.tif"});
  Figure figure;
  figure.input = "dir,with \"comma\".tif";
  figure.subject = "target 1 left";
  figure.name = "MTF50";
  figure.value = 0.25;
  figure.unit = "cycles/pixel";
  figure.hasInterval = true;
  figure.lower = 0.125;
  figure.upper = 0.375;
  document.AddFigure(figure);
  document.AddFigure("a.tif", "edge", "efficiency", std::nan(""), "%");
  EXPECT_EQ(document.Csv(),
            "input,subject,figure,value,unit,lower,upper\n"
            "\"dir,with \"\"comma\"\".tif\",target 1 left,MTF50,0.25,cycles/pixel,0.125,0.375\n"
            "a.tif,edge,efficiency,-1,%,,\n");
  const auto json = document.Json();
  EXPECT_EQ(json.at("schemaVersion"), ResultsDocument::kSchemaVersion);
  EXPECT_EQ(json.at("figures")[1].at("value"), -1.0);
  EXPECT_EQ(json.at("commandLine"), "ombrix mtf a.tif");
}

}  // namespace
