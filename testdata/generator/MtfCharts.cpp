// The MTF chart images "FTM.tif" (8-bit), "FTM2.tif" (16-bit, another layout) and
// "TestEntreeFTM.tif" (FTM's layout with more blur), each with five tilted square targets and the
// distractors that detection must reject, rendered analytically (MtfChart.h), and their truths
// "FTM.txt", "FTM2.txt", "TestEntreeFTM.txt" (model, targets with their true corners, distractors).
//
// Blur calibration (done once with tools/CalibrateMtfCharts.cpp, frozen in MtfChartLayouts.h):
// the chart, quantised and with its noise exactly as written here, was rendered for a range of
// sigma and measured with CMtfMeasurement::MeasureTargets (the suite's target measurement, default
// settings). The mean efficiency over the 20 measured edges falls with sigma (55.3 % at 1.2, 47.8 %
// at 1.4, 44.7 % at 1.5, 42.1 % at 1.6, 37.8 % at 1.8, 33.3 % at 2.1); nine bisection steps
// bracketed 47.5 % for FTM (seed 5101) and 37.5 % for TestEntreeFTM (seed 5103), and the values
// nearest the aims were frozen. TargetDetectionTest re-measures both charts so that a change of the
// measurement that moves these figures is noticed.
#include <cstdio>
#include <sstream>
#include <string>

#include "DataSet.h"
#include "MtfChart.h"
#include "MtfChartLayouts.h"

namespace {

std::string Point(const cv::Point2d& p) {
  char buffer[64];
  std::snprintf(buffer, sizeof(buffer), "(%.3f, %.3f)", p.x, p.y);
  return buffer;
}

std::string Truth(const std::string& file, const datagen::ChartLayout& l, double sigma,
                  const datagen::ChartQuantisation& q) {
  std::ostringstream text;
  text.precision(10);
  text << file << ": " << l.cols << " x " << l.rows << " pixels, "
       << (q.depth == CV_8U ? "8-bit" : "16-bit") << " unsigned, one channel\n"
       << "model: chart of grey levels (background 1, target frame 0, target centre " << l.centre
       << ", distractors background + their delta), blurred by a Gaussian PSF of sigma " << sigma
       << " px and averaged over each square pixel (pixel centres at integer coordinates)\n"
       << "DN = " << q.black << " + " << (q.white - q.black) << " * level + noise, noise "
       << q.noise << " DN (datagen::Random seed " << q.seed
       << ", row by row), rounded and saturated\n"
       << "\ntargets (" << l.targets.size()
       << "): dark square frame of side L with a lighter centre square of side f L, both turned "
          "by the tilt (clockwise on screen, y down)\n";
  int number = 0;
  for (const datagen::ChartTarget& t : l.targets) {
    text << "target " << ++number << ": centre " << Point(t.centre) << ", L " << t.side << ", tilt "
         << t.tiltDegrees << " degrees, f " << t.innerFraction << "\n  outer corners";
    for (const cv::Point2d& c : datagen::SquareCorners(t.centre, t.side, t.tiltDegrees)) {
      text << " " << Point(c);
    }
    text << "\n  inner corners";
    for (const cv::Point2d& c :
         datagen::SquareCorners(t.centre, t.side * t.innerFraction, t.tiltDegrees)) {
      text << " " << Point(c);
    }
    text << "\n";
  }
  text << "\ndistractors (to be rejected by detection):\n";
  for (const std::string& note : l.notes) text << "  " << note << "\n";
  return text.str();
}

void Generate(datagen::Output& out) {
  const struct {
    const char* image;
    const char* truth;
    datagen::ChartLayout layout;
    double sigma;
    datagen::ChartQuantisation quantisation;
  } charts[] = {
      {"FTM.tif", "FTM.txt", datagen::FtmLayout(), datagen::kFtmSigma, datagen::FtmQuantisation()},
      {"FTM2.tif", "FTM2.txt", datagen::Ftm2Layout(), datagen::kFtm2Sigma,
       datagen::Ftm2Quantisation()},
      {"TestEntreeFTM.tif", "TestEntreeFTM.txt", datagen::TestEntreeLayout(),
       datagen::kTestEntreeSigma, datagen::TestEntreeQuantisation()},
  };
  for (const auto& chart : charts) {
    out.WriteTiff(chart.image,
                  datagen::RenderQuantisedChart(chart.layout, chart.sigma, chart.quantisation));
    out.WriteText(chart.truth, Truth(chart.image, chart.layout, chart.sigma, chart.quantisation));
  }
}

}  // namespace

OMBRIX_DATA_SET("MtfCharts", Generate);
