// tarq-load: how many records per second the host takes without loss, how it bears a long run, and a reader that
// stalls.
#include <fmt/format.h>
#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <filesystem>
#include <vector>

#include "load/trial.h"

namespace tarq::load {
namespace {

struct Options {
  std::string host;
  size_t queueBytes = 8 << 20;  ///< the host's default
  double rate = 100'000;
  double seconds = 10;
  double minutes = 30;
  double stall = 60;
};

constexpr double kMiB = 1 << 20;
constexpr double kResolution = 1.05;  ///< ratio between the rate that is found and the next that loses
constexpr double kSteady = 1.0;       ///< percent that memory may differ by

double Mebibytes(uint64_t bytes) { return static_cast<double>(bytes) / kMiB; }

/// A loss that is in no count, a disagreement or books that do not balance: the measurement shows a fault.
bool Faulty(const Result& result) {
  const uint64_t known = result.lostBySender + result.lostByHost;
  const bool accounted = result.offered == result.json + result.jsonDropped + known &&
                         result.offered == result.gpb + result.gpbDropped + known;
  const bool hostLost = result.lostByHost + result.jsonDropped + result.gpbDropped > 0;
  return !accounted || !result.readersAgree || !result.imbalance.empty() || result.exitCode != (hostLost ? 1 : 0);
}

void PrintHead() {
  fmt::print(
      "| offered records/s | delivered | lost | by the sender's backlog | by the host before its queues | by queues, JSON / GPB "
      "| last records | host memory before, peak, after |\n|---|---|---|---|---|---|---|---|\n");
}

void PrintRow(double rate, const Result& result) {
  fmt::print("| {:.0f} | {} | {:.2f} % | {} | {} | {} / {} | {} | {:.1f}, {:.1f}, {:.1f} MiB |{}{}\n", rate,
             std::min(result.json, result.gpb), result.lossPercent(), result.lostBySender, result.lostByHost,
             result.jsonDropped, result.gpbDropped, result.late ? "late" : "on time", Mebibytes(result.memoryBefore),
             Mebibytes(result.memoryPeak), Mebibytes(result.memoryAfter), Faulty(result) ? " NOT ACCOUNTED FOR " : "",
             result.imbalance);
  std::fflush(stdout);
}

/// Trials at changing rates in a folder of their own.
class Trials {
 public:
  Trials(Options options, std::string folder) : options_(std::move(options)), folder_(std::move(folder)) {}

  /// Runs one trial and prints it. True when nothing was lost or late.
  bool Good(double rate) {
    const Result result = load::Run({options_.host, folder_, options_.queueBytes, rate, Seconds(options_.seconds)});
    PrintRow(rate, result);
    faulty_ |= Faulty(result);
    return result.lost() == 0 && !result.late;
  }

  /// The highest rate without loss, to `kResolution`, that held twice.
  double NoDropRate() {
    double good = 0, bad = options_.rate;
    while (Good(bad)) good = std::exchange(bad, bad * 2);
    while (good == 0) Good(bad / 2) ? void(good = bad / 2) : void(bad /= 2);
    while (bad / good > kResolution) {
      const double middle = std::sqrt(good * bad);
      (Good(middle) ? good : bad) = middle;
    }
    while (!Good(good)) good /= kResolution;
    return good;
  }
  bool faulty() const { return faulty_; }

 private:
  Options options_;
  std::string folder_;
  bool faulty_ = false;
};

int Load(const Options& options, const std::string& folder) {
  Trials trials(options, folder);
  PrintHead();
  const double rate = trials.NoDropRate();
  fmt::print("\nno-drop rate: {:.0f} records/s; beyond it:\n\n", rate);
  PrintHead();
  trials.Good(1.5 * rate);
  trials.Good(2 * rate);
  return trials.faulty() ? 1 : 0;
}

double Mean(const std::vector<double>& values, size_t from, size_t to) {
  double sum = 0;
  for (size_t i = from; i < to; ++i) sum += values[i];
  return sum / static_cast<double>(to - from);
}

int Soak(const Options& options, const std::string& folder) {
  constexpr size_t kMinute = 60, kWindow = 10;  // seconds
  std::vector<double> memory;
  const Result result =
      load::Run({options.host, folder, options.queueBytes, options.rate, Seconds(options.minutes * 60)},
                [&](Seconds passed, uint64_t bytes) {
                  memory.push_back(Mebibytes(bytes));
                  if (memory.size() % kMinute != 0) return;
                  fmt::print("{:4.0f} min  {:.2f} MiB\n", passed.count() / 60, memory.back());
                  std::fflush(stdout);
                });
  PrintHead();
  PrintRow(options.rate, result);
  if (memory.size() < kMinute + kWindow) return fmt::print("too short to compare memory\n"), 1;
  const double early = Mean(memory, kMinute - kWindow, kMinute);
  const double end = Mean(memory, memory.size() - kWindow, memory.size());
  const double change = 100 * (end - early) / early;
  fmt::print("memory after the first minute {:.2f} MiB, at the end {:.2f} MiB: {:+.2f} %; longest event {:.1f} ms\n",
             early, end, change, result.longestEvent.count() * 1000);
  return Faulty(result) || result.lost() > 0 || std::abs(change) > kSteady ? 1 : 0;
}

int Stall(const Options& options, const std::string& folder) {
  const Result result = load::Run(
      {options.host, folder, options.queueBytes, options.rate, Seconds(options.stall + 10), Seconds(options.stall)});
  PrintHead();
  PrintRow(options.rate, result);
  const bool othersWhole = result.gpb == result.offered;
  // Every queue full, what is on its way to them, and what a host takes under load otherwise.
  const uint64_t bound = 3 * options.queueBytes + (128u << 20);
  fmt::print("the JSON reader stood still for {:.0f} s and lost {} records; the GPB reader lost {}\n", options.stall,
             result.jsonDropped, result.offered - result.gpb);
  return Faulty(result) || !othersWhole || result.jsonDropped == 0 || result.memoryPeak > bound ? 1 : 0;
}

int Main(int argc, char** argv) {
  Options options;
  options.host = (std::filesystem::canonical("/proc/self/exe").parent_path() / "../host/tarq-host").lexically_normal();
  CLI::App app("Offers records of all kinds to a host with one JSON and one GPB reader of each.", "tarq-load");
  app.require_subcommand(1);
  app.add_option("--host", options.host, "The host's program")->capture_default_str();
  app.add_option("--queue-bytes", options.queueBytes, "Bound of each subscription's queue, as the host's option")
      ->capture_default_str();
  app.add_option("--rate", options.rate, "Records per second: where the search begins, or the rate of a soak or stall")
      ->check(CLI::Range(1000.0, 1e8))
      ->capture_default_str();
  app.add_option("--seconds", options.seconds, "Length of a trial")
      ->check(CLI::Range(1.0, 3600.0))
      ->capture_default_str();
  app.fallthrough();
  CLI::App* load = app.add_subcommand("load", "Searches the highest rate without loss, then 1.5 and 2 times that");
  CLI::App* soak = app.add_subcommand("soak", "One long run; fails on loss, or when memory moves by more than 1 %");
  soak->add_option("MINUTES", options.minutes)->check(CLI::Range(1.5, 1e5))->required();
  CLI::App* stall =
      app.add_subcommand("stall", "The JSON reader stands still under load; the GPB reader must miss nothing");
  stall->add_option("SECONDS", options.stall)->check(CLI::Range(1.0, 3600.0))->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  std::string folder = std::filesystem::temp_directory_path() / "tarq-load-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error(folder + " cannot be made");
  int code = load->parsed() ? Load(options, folder) : soak->parsed() ? Soak(options, folder) : Stall(options, folder);
  if (code == 0) std::filesystem::remove_all(folder);
  if (code != 0) fmt::print("the host's log lines are in {}\n", folder);
  return code;
}

}  // namespace
}  // namespace tarq::load

int main(int argc, char** argv) try { return tarq::load::Main(argc, argv); } catch (const std::exception& error) {
  fmt::print(stderr, "tarq-load: {}\n", error.what());
  return 1;
}
