#include "host/options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "host/log.h"
#include "host/stream_output.h"
#include "standin/packed_list.h"
#include "standin/standin.h"

namespace tarq::host {
namespace {

constexpr const char* kDescription =
    "Loads the flow telemetry module, subscribes to its sample paths and delivers the samples.\n"
    "SIGINT, SIGTERM, SIGHUP or the end of --duration ends it in order, with a summary on standard error;\n"
    "a second signal ends it at once.";

std::string Footer() {
  return fmt::format(
      R"(Kinds: native-ip, flow, flow-hop, or a whole sample path. Encodings: json, gpb.

Samples come every 3 seconds while there are records. INTERVAL (a number with ms, s, m or h; default 10s, at most
{}ms) is the period after which a sample says that a report interval has ended (active_report_end).
For the same reason a --drain-timeout of less than 3 seconds risks the last records. After it, ending the threads may
take {} s more, and the summary as long again where nobody reads it.

A --subscribe or --format belongs to the --output before it, or to the first. Subscribers on tcp: or unix: are dialled,
and again {} ms to {} s later while they are away; meanwhile their queues fill and then drop their oldest samples.

Examples:
  tarq-host                                           all kinds in JSON, on standard output
  tarq-host --subscribe flow:json:10s | jq .data      flow records only
  tarq-host --subscribe native-ip:gpb --output DIR    GPB samples as files:
    protoc --decode=tarq.Tarq -I schema schema/tarq.proto < DIR/SAMPLE.pb
  tarq-host --output tcp:127.0.0.1:9000 --subscribe flow:json \
            --output unix:/run/hops --format delimited --subscribe flow-hop:gpb
                                                      two subscribers, each with its own
  tarq-host --db perf.db --duration 60                keep the period table:
    sqlite3 perf.db 'select * from tarq_savro_report_perf'

Limits: {} outputs; {} subscriptions; {} connections served at a time, others wait; {} bytes a message, {} s for it to complete;
{} bytes of samples on their way to the queues; {} log lines waiting to be written.

Exit codes: 0 nothing was lost or failed; 1 something was, the summary names it; 2 bad usage or the start failed.)",
      kMaxIntervalMs, kStopTimeout.count(), kFirstRetry.count(),
      std::chrono::duration_cast<std::chrono::seconds>(kLastRetry).count(), kMaxOutputs, kMaxSubscriptions,
      standin::kMaxConnections, wire::kMaxMessageLength, standin::kHalfFrameTimeout.count(), standin::kMaxPendingBytes,
      kMaxWaitingLogLines);
}

const std::map<std::string, Format> kFormats{
    {"auto", Format::kAuto}, {"lines", Format::kLines}, {"pretty", Format::kPretty}, {"delimited", Format::kDelimited}};

/// The command line as it is typed, before it is turned into `Options`.
struct Raw {
  double duration = 0;
  double drainTimeout = std::chrono::duration<double>(kDefaultDrainTimeout).count();
  uint16_t port = wire::kDefaultChannelPort;
};

/// As `CLI::Range`, which lets "nan" pass.
CLI::Validator SecondsBetween(double least, double most) {
  auto check = [least, most](const std::string& text) {
    double seconds = 0;
    bool good = CLI::detail::lexical_cast(text, seconds) && seconds >= least && seconds <= most;
    return good ? std::string() : fmt::format("\"{}\" is no number of seconds from {} to {}", text, least, most);
  };
  return CLI::Validator(check, "");
}

CLI::Validator NotEmpty() {
  auto check = [](const std::string& text) { return text.empty() ? "an empty name; leave the option out" : ""; };
  return CLI::Validator(check, "");
}

uint16_t PortFromEnvironment(uint16_t otherwise) {
  const char* variable = std::getenv(kPortVariable);
  std::string_view text = variable ? variable : "";
  if (text.empty()) return otherwise;
  uint16_t port = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error == std::errc() && end == text.data() + text.size()) return port;
  throw std::invalid_argument(fmt::format("{} is \"{}\": expected a port from 0 to 65535", kPortVariable, text));
}

std::chrono::milliseconds Milliseconds(double seconds) {
  return std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
}

void Declare(CLI::App& app, Options& options, Raw& raw) {
  app.set_version_flag("--version", "tarq-host " TARQ_VERSION);
  app.footer(Footer());
  // Their texts are taken as they were typed, by `SortByOutput`.
  auto repeatable = [&app](const char* name, const char* help) {
    return app
        .add_option(
            name, [](const CLI::results_t&) { return true; }, help)
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  };
  repeatable("--subscribe", "KIND:ENCODING[:INTERVAL], repeatable; default every kind in JSON")->type_name("TEXT");
  repeatable(
      "--output",
      "Where samples go, repeatable: \"-\", standard output, the default; a directory, which gets a file per sample; "
      "tcp:HOST:PORT or unix:PATH, where a subscriber listens")
      ->type_name("TARGET");
  repeatable("--format",
             "Of that output: JSON lines; a readable text (standard output only), which auto takes on a terminal; "
             "delimited, GPB samples with their lengths")
      ->check(CLI::IsMember(&kFormats).description(""))
      ->type_name("auto|lines|pretty|delimited");
  app.add_option("--db", options.database, "SQLite file for the period table; default in memory")
      ->check(NotEmpty())
      ->type_name("FILE");
  app.add_option("--log-level", options.logLevel, "Least level of log lines")
      ->check(CLI::IsMember({"debug", "info", "warn", "error"}).description(""))
      ->type_name("debug|info|warn|error")
      ->capture_default_str();
  app.add_option("--duration", raw.duration, "Ends by itself after that time")
      ->check(SecondsBetween(0.001, kMaxDurationSeconds))
      ->type_name("SECONDS");
  app.add_option("--module", options.module, "The module; default libsavro_tarq.so beside this program, in ../module")
      ->check(NotEmpty())
      ->type_name("PATH");
  app.add_option("--port", raw.port,
                 fmt::format("Port of the channel on 127.0.0.1, else from {}; 0 takes a free one, which is logged",
                             kPortVariable))
      ->check(CLI::Range(0u, 65535u).description(""))
      ->type_name("0..65535")
      ->capture_default_str();
  app.add_option("--port-file", options.portFile, "Holds the channel's port while messages are taken, for scripts")
      ->check(NotEmpty())
      ->type_name("FILE");
  app.add_option("--metrics", options.metricsPort,
                 "Serves /metrics (Prometheus) and /healthz on 127.0.0.1; 0 takes a free port, which is logged")
      ->check(CLI::Range(0u, 65535u).description(""))
      ->type_name("0..65535");
  app.add_option("--queue-bytes", options.queueBytes,
                 fmt::format("Bound of each subscription's queue, {} to {}; a full one drops its oldest samples",
                             kMinQueueBytes, kMaxQueueBytes))
      ->check(CLI::Range(kMinQueueBytes, kMaxQueueBytes).description(""))
      ->type_name("BYTES")
      ->capture_default_str();
  app.add_option("--drain-timeout", raw.drainTimeout, "Time at the end for what was accepted to be delivered")
      ->check(SecondsBetween(0, kMaxDrainSeconds))
      ->type_name("SECONDS")
      ->capture_default_str();
}

/// The options of one output as they were typed.
struct RawOutput {
  std::string target = "-";
  std::vector<std::string> formats, subscriptions;
};

/// Sorts the options of outputs by output: they belong to the `--output` before them, the ones before the first to the
/// first.
std::vector<RawOutput> SortByOutput(const CLI::App& app) {
  std::vector<RawOutput> outputs(1);
  std::map<const CLI::Option*, size_t> taken;
  for (const CLI::Option* option : app.parse_order()) {
    const std::string& name = option->get_lnames().empty() ? option->get_name() : option->get_lnames().front();
    if (name != "output" && name != "subscribe" && name != "format") continue;
    const size_t place = taken[option]++;
    const std::string& text = option->results().at(place);
    if (name == "output" && place > 0) outputs.emplace_back();
    if (name == "output") outputs.back().target = text;
    if (name == "subscribe") outputs.back().subscriptions.push_back(text);
    if (name == "format") outputs.back().formats.push_back(text);
  }
  return outputs;
}

void CheckFormat(const OutputOptions& output) {
  auto refuse = [&output](std::string_view reason) {
    throw std::invalid_argument(fmt::format("output \"{}\": {}", output.target.text, reason));
  };
  bool gpbOnly = std::ranges::all_of(
      output.subscriptions, [](const Subscription& subscription) { return subscription.encoding == kCodeTypeGpb; });
  if (output.format == Format::kPretty && output.target.stream()) refuse("--format pretty is for standard output only");
  if (output.format == Format::kDelimited && !gpbOnly) refuse("--format delimited takes subscriptions in gpb only");
}

OutputOptions Complete(const RawOutput& raw, size_t firstSubscription) {
  OutputOptions output;
  output.target = ParseTarget(raw.target);
  if (raw.formats.size() > 1) throw std::invalid_argument(fmt::format("two --format for output \"{}\"", raw.target));
  if (!raw.formats.empty() && output.target.kind == Target::Kind::kDirectory) {
    throw std::invalid_argument(
        fmt::format("--format is for standard output and streams; leave it out with --output \"{}\"", raw.target));
  }
  if (!raw.formats.empty()) output.format = kFormats.at(raw.formats.front());
  output.subscriptions = ParseSubscriptions(
      raw.subscriptions, output.format == Format::kDelimited ? kCodeTypeGpb : kCodeTypeJson, firstSubscription);
  CheckFormat(output);
  return output;
}

/// Turns what was typed into `options`. Throws `std::invalid_argument`.
void Complete(const CLI::App& app, const Raw& raw, Options& options) {
  for (const RawOutput& output : SortByOutput(app)) {
    options.outputs.push_back(Complete(output, options.subscriptions().size()));
    auto same = std::ranges::count(options.outputs, output.target,
                                   [](const OutputOptions& other) { return other.target.text; });
    if (same > 1) throw std::invalid_argument(fmt::format("output \"{}\" is given twice", output.target));
  }
  if (options.outputs.size() > kMaxOutputs) {
    throw std::invalid_argument(fmt::format("{} outputs given, {} is the most", options.outputs.size(), kMaxOutputs));
  }
  if (app.count("--duration")) options.duration = Milliseconds(raw.duration);
  options.port = app.count("--port") ? raw.port : PortFromEnvironment(raw.port);
  options.drainTimeout = Milliseconds(raw.drainTimeout);
}

}  // namespace

std::vector<Subscription> Options::subscriptions() const {
  std::vector<Subscription> all;
  for (const OutputOptions& output : outputs) {
    all.insert(all.end(), output.subscriptions.begin(), output.subscriptions.end());
  }
  return all;
}

std::variant<Options, EarlyExit> ParseOptions(int argc, const char* const* argv) {
  CLI::App app(kDescription, "tarq-host");
  Options options;
  Raw raw;
  Declare(app, options, raw);
  try {
    app.parse(argc, argv);
    Complete(app, raw, options);
  } catch (const CLI::CallForHelp&) {
    return EarlyExit{0, app.help()};
  } catch (const CLI::CallForVersion& version) {
    return EarlyExit{0, std::string(version.what()) + "\n"};
  } catch (const std::exception& error) {
    return EarlyExit{2, fmt::format("tarq-host: {} (see --help)\n", error.what())};
  }
  return options;
}

}  // namespace tarq::host
