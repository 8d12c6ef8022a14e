#include "meter/options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <iostream>

#include "meter/period.h"
#include "standin/packed_list.h"

namespace tarq::meter {
namespace {

// Limits of the options; CLI11 shows each in --help.
constexpr uint32_t kMaxFlowsPerPeriod = 100'000'000;
constexpr uint32_t kMaxSyntheticFlows = 1u << 24;  // as many as the made-up IPv4 sources tell apart
constexpr uint32_t kMaxRecordsPerSecond = 10'000'000;
constexpr uint32_t kMaxLoops = 1'000'000'000;
constexpr uint32_t kMinMessageBytes = 1024;
constexpr uint32_t kMaxBacklogMib = 65536;
constexpr uint32_t kMaxBufferMib = 1024;
constexpr double kMaxLingerSeconds = 600;
constexpr double kMinDurationSeconds = 0.001;
constexpr double kMaxDurationSeconds = 100'000'000;

constexpr char kExamples[] = R"(Examples:
  tarq-meter --interface eth0
      meters what passes eth0 and sends it to a host on this machine
  tarq-meter --interface lo --filter 'not port 58234' --period 5
      the loopback interface, the meter's own messages left out
  tarq-meter --pcap trace.pcap --channel 127.0.0.1:58300
      replays a capture as fast as it goes, to a host on another port; --pace real keeps its timing
  tarq-meter --synthetic 1000 --periods 3 --seed 7
      made-up flows, where capturing is not allowed

What is counted: IPv4 and IPv6 packets on Ethernet (VLAN tags and MPLS labels are looked through), Linux cooked, raw IP
and BSD loopback links. Bytes are IP bytes. Fragments after the first have port 0. All other packets are shown as skipped.

The meter's own messages on a captured interface are traffic like any other: --filter 'not port 58234' leaves them out.
Capturing needs root or the capability CAP_NET_RAW.

A period's records go out when it is over; where periods pass faster than time does (--pcap without --pace real, or
--rate), a message may wait up to 1 s for more records. Up to 4 periods are open at a time, so that packets out of order around a
period's edge count in it; a packet of a fifth one closes the one used least recently.

The summary's "unconfirmed" covers everything that was sent on a connection that did not end in order: the host may or
may not have it. What was not sent yet goes over the next connection.

SIGINT or SIGTERM ends in order, a second one at once.

Exit codes:
  0  the host's channel took everything that was counted; what the host then did with it, its own summary tells
  1  packets, records or messages were lost, or it is not known whether the host took all of them, or reading failed
  2  the command line, the capture, the filter or the interface is no good
  3  capturing is not permitted here
)";

Options Checked(Options options, const std::string& channel, double linger, double duration) {
  const auto endpoint = ParseEndpoint(channel);
  if (!endpoint) {
    throw StartFailure(kBadUsage, "--channel '" + channel + "' is not HOST:PORT, for example 127.0.0.1:58234");
  }
  if (options.loops > 1 && options.pcapFile == "-") {
    throw StartFailure(kBadUsage, "--loop cannot repeat standard input; give --pcap a file");
  }
  options.channel = *endpoint;
  options.linger = std::chrono::milliseconds(std::llround(linger * 1000));
  options.duration = std::chrono::milliseconds(std::llround(duration * 1000));
  return options;
}

/// Where packets come from, of which exactly one is to be given. (Not an option group of the parser's: with one it
/// never ends on an empty argument.)
void AddSources(CLI::App& app, Options& options) {
  constexpr char kGroup[] = "Source, exactly one";
  app.add_option("--interface", options.interface, "Capture on this interface; 'any' for all")
      ->type_name("IF")
      ->group(kGroup);
  app.add_option("--pcap", options.pcapFile, "Replay this capture; '-' for standard input")
      ->type_name("FILE")
      ->group(kGroup);
  app.add_option("--synthetic", options.syntheticFlows, "Make up this many flows per period")
      ->type_name("FLOWS")
      ->check(CLI::Range(1u, kMaxSyntheticFlows))
      ->group(kGroup);
}

void CheckSources(const CLI::App& app) {
  if (app.count("--interface") + app.count("--pcap") + app.count("--synthetic") == 1) return;
  throw StartFailure(kBadUsage, "give exactly one of --interface, --pcap and --synthetic; see tarq-meter --help");
}

void AddSourceDetails(CLI::App& app, Options& options) {
  auto* live = app.get_option("--interface");
  auto* file = app.get_option("--pcap");
  auto* madeUp = app.get_option("--synthetic");
  app.add_option("--filter", options.filter, "Count only what this capture filter (BPF) lets through")
      ->type_name("EXPR")
      ->excludes(madeUp);
  app.add_flag("--promiscuous", options.promiscuous, "Capture frames for other stations, too")->needs(live);
  app.add_option("--buffer-mib", options.bufferMib, "The kernel's capture buffer")
      ->needs(live)
      ->capture_default_str()
      ->check(CLI::Range(1u, kMaxBufferMib));
  app.add_option(
         "--pace", [&options](const CLI::results_t& values) { return options.paceReal = values[0] == "real", true; },
         "'fast', or 'real' for the capture's own timing (default fast)")
      ->needs(file)
      ->check(CLI::IsMember({"fast", "real"}));
  app.add_option("--loop", options.loops, "Replay it this often, each time shifted to later periods")
      ->needs(file)
      ->capture_default_str()
      ->check(CLI::Range(1u, kMaxLoops));
  app.add_option("--seed", options.seed, "Other made-up flows for another seed")->needs(madeUp)->capture_default_str();
  app.add_option("--periods", options.rounds, "End after this many rounds of made-up flows")
      ->needs(madeUp)
      ->check(CLI::PositiveNumber);
  app.add_option("--rate", options.recordsPerSecond,
                 "Make rounds of flows for this many records per second, in place of one round per period")
      ->needs(madeUp)
      ->check(CLI::Range(1u, kMaxRecordsPerSecond));
}

void AddReporting(CLI::App& app, Options& options) {
  app.add_option("--period", options.periodSeconds, "Seconds per period")
      ->capture_default_str()
      ->check(CLI::Range(kMinPeriodSeconds, kMaxPeriodSeconds));
  app.add_option(
         "--max-flows", options.maxFlows,
         "Flows over all open periods; beyond it the other periods close early, and packets of more flows in one period "
         "are shown as not metered")
      ->capture_default_str()
      ->check(CLI::Range(1u, kMaxFlowsPerPeriod));
  app.add_option("--message-bytes", options.messageBytes, "Size of a message at most")
      ->capture_default_str()
      ->check(CLI::Range(kMinMessageBytes, wire::kMaxMessageLength));
  app.add_option("--backlog", options.backlogMib,
                 "MiB of memory for messages while the host is away, a third per kind; beyond it the oldest are lost")
      ->capture_default_str()
      ->check(CLI::Range(1u, kMaxBacklogMib));
  app.add_flag("--quiet", options.quiet, "Warnings and errors only; the summary only when something is missing");
}

}  // namespace

std::optional<Endpoint> ParseEndpoint(const std::string& text) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) return std::nullopt;
  std::string host = text.substr(0, colon);
  const bool bracketed = host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (host.empty() || (!bracketed && host.find(':') != std::string::npos)) return std::nullopt;
  uint16_t port = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, port);
  if (error != std::errc{} || stop != end || port == 0) return std::nullopt;
  return Endpoint{host, port};
}

std::optional<Options> ReadOptions(int argc, char** argv) {
  CLI::App app("Counts packets per flow and period and sends the counts as statistics messages.", "tarq-meter");
  Options options;
  std::string channel = "127.0.0.1:" + std::to_string(wire::kDefaultChannelPort);
  double linger = 5;
  double duration = 0;
  AddSources(app, options);
  AddSourceDetails(app, options);
  AddReporting(app, options);
  app.add_option("--channel", channel, "Where the host listens")->type_name("HOST:PORT")->capture_default_str();
  app.add_option("--duration", duration, "End after this many seconds")
      ->type_name("SECONDS")
      ->check(CLI::Range(kMinDurationSeconds, kMaxDurationSeconds));
  app.add_option("--linger", linger, "Seconds at the end to send what is left, and again to have it confirmed")
      ->type_name("SECONDS")
      ->capture_default_str()
      ->check(CLI::Range(0.0, kMaxLingerSeconds));
  app.set_version_flag("--version", "tarq-meter " TARQ_VERSION);
  app.footer(kExamples);
  try {
    app.parse(argc, argv);
    CheckSources(app);
  } catch (const CLI::Success& request) {
    app.exit(request);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    throw StartFailure(kBadUsage, std::string(error.what()) + "; see tarq-meter --help");
  }
  return Checked(options, channel, linger, duration);
}

}  // namespace tarq::meter
