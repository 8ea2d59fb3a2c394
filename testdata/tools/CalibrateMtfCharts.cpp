// Finds the blur of "FTM.tif" and "TestEntreeFTM.tif": renders each chart exactly as the MtfCharts
// data set writes it for a range of PSF widths, measures it with the target measurement and
// bisects for a mean efficiency over all measured edges of 47.5 % (FTM) and 37.5 %
// (TestEntreeFTM). Run once; the results are frozen in generator/MtfChartLayouts.h.
//   calibrate_mtf_charts
#include <cstdio>

#include "Bisect.h"
#include "MtfChartLayouts.h"
#include "mtf/MtfMeasurement.h"

namespace {

double MeanEfficiency(const datagen::ChartLayout& layout, double sigma,
                      const datagen::ChartQuantisation& quantisation) {
  CMtfMeasurement measurement;
  const MtfTargetMap targets =
      measurement.MeasureTargets(datagen::RenderQuantisedChart(layout, sigma, quantisation));
  std::size_t edges = 0;
  for (const auto& entry : targets) edges += entry.second.edges.size();
  const double mean = CMtfMeasurement::MeanEfficiency(targets);
  std::printf("  sigma %.5f: %zu targets, %zu edges, mean efficiency %.4f %%\n", sigma,
              targets.size(), edges, mean);
  return mean;
}

// The mean efficiency falls as sigma grows; nine halvings reach about 0.001 px, below which the
// figure only jitters (about 0.1 %) as the edges move against the pixel grid.
double Bisect(const datagen::ChartLayout& layout, const datagen::ChartQuantisation& quantisation,
              double lo, double hi, double aim) {
  return datagen::BisectFalling(
      lo, hi, aim, 9, [&](double sigma) { return MeanEfficiency(layout, sigma, quantisation); });
}

}  // namespace

int main() {
  std::printf("FTM.tif, aim 47.5 %%\n");
  const double ftm = Bisect(datagen::FtmLayout(), datagen::FtmQuantisation(), 1.2, 1.6, 47.5);
  std::printf("TestEntreeFTM.tif, aim 37.5 %%\n");
  const double entree =
      Bisect(datagen::TestEntreeLayout(), datagen::TestEntreeQuantisation(), 1.5, 2.1, 37.5);
  std::printf("FTM sigma %.5f, TestEntreeFTM sigma %.5f\n", ftm, entree);
  const double frozenFtm =
      MeanEfficiency(datagen::FtmLayout(), datagen::kFtmSigma, datagen::FtmQuantisation());
  const double frozenEntree = MeanEfficiency(datagen::TestEntreeLayout(), datagen::kTestEntreeSigma,
                                             datagen::TestEntreeQuantisation());
  std::printf("frozen: FTM %.5f -> %.4f %%, TestEntreeFTM %.5f -> %.4f %%\n", datagen::kFtmSigma,
              frozenFtm, datagen::kTestEntreeSigma, frozenEntree);
  return 0;
}
