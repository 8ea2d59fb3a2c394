// Console reporter shared by the benchmark programs: keeps each run's wall time per iteration so a
// program can print, after the table, its operation's time over a reference run of the same
// process, and the main that runs a program with it. Accepts any run; a ratio whose runs were
// filtered out is not printed.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace ombrix_bench {

class CRatioReporter : public benchmark::ConsoleReporter {
 public:
  // labelWidth: the column the program's longest ratio label fits in, so its lines align.
  explicit CRatioReporter(int labelWidth) : labelWidth_(labelWidth) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
        seconds_[run.benchmark_name()] =
            run.real_accumulated_time / static_cast<double>(run.iterations);
      }
    }
  }

  // Prints "what  a ms / b ms = a/b" for the runs named numerator and denominator (full names,
  // e.g. "DiscMedian/10/real_time").
  void PrintRatio(const std::string& what, const std::string& numerator,
                  const std::string& denominator) const {
    const auto n = seconds_.find(numerator);
    const auto d = seconds_.find(denominator);
    if (n == seconds_.end() || d == seconds_.end()) return;
    std::printf("%-*s %9.3f ms / %9.3f ms = %6.2f\n", labelWidth_, what.c_str(), 1e3 * n->second,
                1e3 * d->second, n->second / d->second);
  }

 private:
  int labelWidth_;
  std::map<std::string, double> seconds_;
};

// The main of a benchmark program: parses the arguments, calls prepare (which renders the inputs,
// so that no benchmark pays for it), runs the benchmarks with a CRatioReporter and hands it to
// printRatios. Returns the program's exit code.
inline int RunBenchmarksWithRatios(int argc, char** argv, int labelWidth,
                                   const std::function<void()>& prepare,
                                   const std::function<void(const CRatioReporter&)>& printRatios) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  prepare();
  CRatioReporter reporter(labelWidth);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  printRatios(reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace ombrix_bench
