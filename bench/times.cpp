// Times of the workloads, all in one run and interleaved. Prints the time of the module's encoders as a ratio to each
// peer's: machines are noisy, ratios of one run are not.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

#include "bench/workloads.h"

namespace tarq::bench {
namespace {

constexpr int kRepetitions = 9;

/// Keeps each workload's median and prints nothing meanwhile.
class Medians : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
        nanoseconds_[run.run_name.function_name] = run.GetAdjustedCPUTime() / kRecords;
      }
    }
  }

  void Print() const {
    std::puts("| records of the same content | ns a record, module | ratio to each peer's time |\n|---|---|---|");
    for (const auto& [name, time] : nanoseconds_) {
      if (!name.ends_with("/module")) continue;
      const std::string group = name.substr(0, name.rfind('/') + 1);
      std::printf("| %s | %.0f |", group.substr(0, group.size() - 1).c_str(), time);
      for (const auto& [peer, peerTime] : nanoseconds_) {
        if (peer != name && peer.starts_with(group)) {
          std::printf(" %s %.3f", peer.substr(group.size()).c_str(), time / peerTime);
        }
      }
      std::puts(" |");
    }
    std::puts("\n| path/KIND/ENCODING/RECORDSxTASKS | ns a record |\n|---|---|");
    for (const auto& [name, time] : nanoseconds_) {
      if (name.starts_with("path/")) std::printf("| %s | %.0f |\n", name.c_str(), time);
    }
  }

 private:
  std::map<std::string, double> nanoseconds_;
};

}  // namespace
}  // namespace tarq::bench

int main(int argc, char** argv) try {
  using namespace tarq::bench;
  benchmark::Initialize(&argc, argv);
  for (const Workload& workload : MakeWorkloads()) {
    benchmark::RegisterBenchmark(workload.name.c_str(), [workload](benchmark::State& state) {
      for (auto _ : state) workload.run();
    })->Repetitions(kRepetitions);
  }
  Medians medians;
  benchmark::RunSpecifiedBenchmarks(&medians);
  medians.Print();
} catch (const std::exception& error) {
  std::fprintf(stderr, "times: %s\n", error.what());
  return 1;
}
