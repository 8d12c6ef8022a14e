// Runs each workload whose name matches a pattern once under callgrind and lets it write a dump of the workload's name:
// bench_instructions PATTERN
#include <valgrind/callgrind.h>

#include <cstdio>
#include <exception>
#include <regex>
#include <string>

#include "bench/workloads.h"

int main(int argc, char** argv) try {
  const std::regex pattern(argc > 1 ? argv[1] : ".");
  auto workloads = tarq::bench::MakeWorkloads();
  std::erase_if(workloads, [&](const auto& workload) { return !std::regex_search(workload.name, pattern); });
  for (const auto& workload : workloads) workload.run();  // symbols are bound, buffers made, the heap is as it stays
  for (const auto& workload : workloads) {
    workload.run();
    CALLGRIND_ZERO_STATS;
    workload.run();
    CALLGRIND_DUMP_STATS_AT(workload.name.c_str());
  }
} catch (const std::exception& error) {
  std::fprintf(stderr, "instructions: %s\n", error.what());
  return 1;
}
