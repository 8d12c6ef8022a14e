#include "host/metrics.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>
#include <utf8.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace tarq::host {
namespace {

/// A label's value: valid UTF-8, what would end it escaped.
std::string Escaped(std::string_view value) {
  std::string text;
  for (char c : utf8::replace_invalid(value)) {
    if (c == '\\' || c == '"') text += '\\';
    c == '\n' ? text += "\\n" : text += c;
  }
  return text;
}

/// `name="value"` pairs with commas between, for a metric's braces.
template <class... Values>
std::string Labels(const char* form, const Values&... values) {
  return fmt::format(fmt::runtime(form), values...);
}

/// Writes families one after the other: first `Family`, then its values.
class Exposition {
 public:
  void Family(std::string_view name, std::string_view type, std::string_view help) {
    name_ = name;
    fmt::format_to(Out(), "# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
  }
  template <class Number>
  void Value(std::string_view labels, Number value, std::string_view suffix = "") {
    if (labels.empty()) fmt::format_to(Out(), "{}{} {}\n", name_, suffix, value);
    if (!labels.empty()) fmt::format_to(Out(), "{}{}{{{}}} {}\n", name_, suffix, labels, value);
  }
  template <class Number>
  void Single(std::string_view name, std::string_view type, std::string_view help, Number value) {
    Family(name, type, help);
    Value("", value);
  }
  std::string Take() { return std::move(text_); }

 private:
  std::back_insert_iterator<std::string> Out() { return std::back_inserter(text_); }
  std::string text_;
  std::string_view name_;
};

double Seconds(std::chrono::nanoseconds time) { return std::chrono::duration<double>(time).count(); }

std::string_view KindName(uint32_t msgId) {
  auto found = std::ranges::find(kKinds, msgId, &Kind::msgId);
  return found == kKinds.end() ? "other" : found->name;
}

void AddChannel(Exposition& out, const standin::ChannelCounters& channel) {
  out.Family("tarq_channel_connections_total", "counter", "Connections by what became of them.");
  out.Value(R"(result="accepted")", channel.connectionsAccepted);
  out.Value(R"(result="refused")", channel.connectionsRefused);
  out.Value(R"(result="faulted")", channel.connectionsFaulted);
  out.Single("tarq_channel_received_bytes_total", "counter", "Payload bytes of complete messages.", channel.bytes);
  out.Single("tarq_channel_received_messages_total", "counter", "Complete messages received.", channel.messages);

  standin::MessageOutcomes other = channel.otherIds;
  out.Family("tarq_channel_messages_total", "counter", "Received messages by kind and what became of them.");
  auto add = [&out](std::string_view kind, const standin::MessageOutcomes& outcomes) {
    const std::pair<const char*, uint64_t> all[] = {{"queued", outcomes.queued},
                                                    {"refused", outcomes.refused},
                                                    {"failed", outcomes.failed},
                                                    {"unwanted", outcomes.unwanted}};
    for (auto [name, count] : all) out.Value(Labels(R"(kind="{}",outcome="{}")", kind, name), count);
  };
  for (const auto& [msgId, outcomes] : channel.byId) {
    if (KindName(msgId) == "other") {
      other.Add(outcomes);
    } else {
      add(KindName(msgId), outcomes);
    }
  }
  add("other", other);
}

/// One value for each of the two queues.
template <class Member>
void AddQueues(Exposition& out, const Accounts& accounts, const char* name, const char* type, const char* help,
               Member member) {
  out.Family(name, type, help);
  out.Value(R"(queue="stats")", accounts.statsQueue.*member);
  out.Value(R"(queue="event")", accounts.eventQueue.*member);
}

void AddQueues(Exposition& out, const Accounts& accounts) {
  using standin::QueueStatus;
  AddQueues(out, accounts, "tarq_queue_depth", "gauge", "Elements waiting.", &QueueStatus::depth);
  AddQueues(out, accounts, "tarq_queue_capacity", "gauge", "Elements that fit.", &QueueStatus::capacity);
  AddQueues(out, accounts, "tarq_queue_written_total", "counter", "Elements accepted.", &QueueStatus::written);
  AddQueues(out, accounts, "tarq_queue_refused_total", "counter", "Elements refused, the queue being full.",
            &QueueStatus::refused);
  AddQueues(out, accounts, "tarq_queue_read_total", "counter", "Elements taken.", &QueueStatus::read);
  AddQueues(out, accounts, "tarq_queue_stop_events_total", "counter", "Flow control: crossings of the upper threshold.",
            &QueueStatus::stopEvents);
}

void AddWorker(Exposition& out, const Accounts& accounts) {
  const auto& events = accounts.eventQueue;
  out.Single("tarq_cycles_total", "counter", "Collection cycles.", accounts.cycles());
  out.Single("tarq_cycles_limited_total", "counter", "Cycles that stopped at the record limit and went on in another.",
             accounts.limitHits());
  out.Family("tarq_worker_event_seconds", "summary", "Time that the worker took for an event: a cycle or a change.");
  out.Value("", Seconds(events.callbackTime), "_sum");
  out.Value("", events.callbacks, "_count");
  out.Single("tarq_worker_event_longest_seconds", "gauge", "The longest of them.", Seconds(events.longestCallback));
}

/// One value for each kind.
template <class Value>
void AddKinds(Exposition& out, const char* name, const char* help, Value value) {
  out.Family(name, "counter", help);
  for (size_t i = 0; i < kKinds.size(); ++i) out.Value(Labels(R"(kind="{}")", kKinds[i].name), value(i));
}

void AddRecords(Exposition& out, const Accounts& accounts) {
  const auto& messages = accounts.messages;
  AddKinds(out, "tarq_messages_unpacked_total", "Messages unpacked.", [&](size_t i) { return messages[i].unpacked; });
  AddKinds(out, "tarq_messages_malformed_total", "Messages that broke the packed format.",
           [&](size_t i) { return messages[i].refused; });
  out.Single("tarq_messages_released_unread_total", "counter",
             "Messages let go without unpacking: no task or no sample buffers.", accounts.statsQueue.unread);
  AddKinds(out, "tarq_records_unpacked_total", "Records unpacked.", [&](size_t i) { return messages[i].records; });
  AddKinds(out, "tarq_records_not_encoded_total", "Records refused by an encoder, once per encoding.",
           [&](size_t i) { return accounts.module.notEncoded[i]; });
  out.Family("tarq_records_encoded_total", "counter", "Records encoded, by kind and encoding somebody subscribed to.");
  for (const Kind& kind : kKinds) {
    for (CodeType encoding : {kCodeTypeJson, kCodeTypeGpb}) {
      if (auto records = accounts.encoded(kind, encoding)) {
        out.Value(Labels(R"(kind="{}",encoding="{}")", kind.name, encoding == kCodeTypeJson ? "json" : "gpb"),
                  *records);
      }
    }
  }
  out.Single("tarq_records_not_uploaded", "gauge", "Encoded records in no upload: not framed, or still gathered.",
             accounts.recordsNotUploaded());
  out.Single("tarq_records_counted_in_total", "counter", "Records in, by the rows handed to the period table.",
             accounts.database.recordsIn);
  out.Single("tarq_records_counted_out_total", "counter", "Records out, by the rows handed to the period table.",
             accounts.database.recordsOut);
  out.Single("tarq_records_forgotten_total", "counter",
             "Records unpacked whose period was displaced before a row told of them.",
             accounts.database.recordsForgotten);
  out.Single("tarq_records_in_no_row", "gauge", "Records unpacked that no row tells of yet.",
             accounts.database.recordsInNoRow);
}

struct State {
  const char* name;
  SampleCount count;
};

/// Samples or records of each subscription in each of its states.
void AddStates(Exposition& out, const Accounts& accounts, uint64_t SampleCount::*part,
               std::vector<State> (*states)(const SubscriptionAccount&)) {
  for (const SubscriptionAccount& account : accounts.subscriptions) {
    const Subscription& subscription = account.subscription;
    for (const State& state : states(account)) {
      out.Value(Labels(R"(subscription="{}",kind="{}",encoding="{}",state="{}")", subscription.index + 1,
                       subscription.kind->name, subscription.encodingName(), state.name),
                state.count.*part);
    }
  }
}

std::vector<State> Ended(const SubscriptionAccount& account) {
  const auto& [subscription, uploads, output] = account;
  return {
      {"encoded", account.encoded()}, {"delivered", output.delivered},        {"dropped", output.dropped},
      {"failed", output.failed},      {"framework_refused", uploads.refused}, {"framework_dropped", uploads.dropped}};
}

std::vector<State> Waiting(const SubscriptionAccount& account) {
  return {{"queue", account.output.waiting}, {"framework", account.uploads.waiting}};
}

void AddSubscriptions(Exposition& out, const Accounts& accounts) {
  out.Family("tarq_subscription_samples_total", "counter",
             "Samples encoded for a subscription, and what became of them.");
  AddStates(out, accounts, &SampleCount::samples, Ended);
  out.Family("tarq_subscription_records_total", "counter",
             "Records encoded for a subscription, and what became of them.");
  AddStates(out, accounts, &SampleCount::records, Ended);
  out.Family("tarq_subscription_waiting_samples", "gauge", "Samples on their way to a subscription.");
  AddStates(out, accounts, &SampleCount::samples, Waiting);
  out.Family("tarq_subscription_waiting_records", "gauge", "Records on their way to a subscription.");
  AddStates(out, accounts, &SampleCount::records, Waiting);
  auto unconfirmed = [](const SubscriptionAccount& account) {
    return std::vector<State>{{"delivered", account.output.unconfirmed}};
  };
  out.Family("tarq_subscription_unconfirmed_records_total", "counter",
             "Of the delivered records: those on a connection that broke before they were acknowledged.");
  AddStates(out, accounts, &SampleCount::records, unconfirmed);
  out.Single("tarq_samples_uploaded_total", "counter", "Samples uploaded by the module.",
             accounts.framework.uploaded.samples);
  out.Single("tarq_samples_not_framed_total", "counter", "Samples that could not be framed for their upload.",
             accounts.module.notFramed);
  out.Single("tarq_samples_unknown_total", "counter", "Samples for tasks that nobody added.", accounts.unknownSamples);
}

/// One value for each output.
template <class Member>
void AddOutputs(Exposition& out, const Accounts& accounts, const char* name, const char* type, const char* help,
                Member member) {
  out.Family(name, type, help);
  for (size_t i = 0; i < accounts.outputs.size(); ++i) {
    const OutputStatus& output = accounts.outputs[i];
    out.Value(Labels(R"(output="{}",target="{}")", i + 1, Escaped(output.name)), uint64_t{output.link.*member});
  }
}

void AddOutputs(Exposition& out, const Accounts& accounts) {
  AddOutputs(out, accounts, "tarq_output_up", "gauge", "1 while the output is open or connected.", &LinkStatus::up);
  AddOutputs(out, accounts, "tarq_output_connects_total", "counter", "Connections made to a subscriber.",
             &LinkStatus::connects);
  AddOutputs(out, accounts, "tarq_output_losses_total", "counter", "Connections to a subscriber that were lost.",
             &LinkStatus::losses);
}

void AddPlatform(Exposition& out, const Accounts& accounts) {
  out.Family("tarq_buffers_in_use", "gauge", "Buffers of the module by their size in bytes.");
  for (auto [size, count] : accounts.framework.buffersInUse) out.Value(Labels(R"(size="{}")", size), count);
  const auto& database = accounts.database;
  out.Family("tarq_database_operations_total", "counter", "Changes of the period table that succeeded.");
  out.Value(R"(operation="insert")", database.inserts);
  out.Value(R"(operation="update")", database.updates);
  out.Value(R"(operation="truncate")", database.truncates);
  out.Single("tarq_database_failures_total", "counter", "Operations that the database refused.", database.failures);
  out.Single("tarq_failure_lines_total", "counter", "Log lines of module and platform that tell a failure.",
             accounts.framework.failureLines);
  out.Single("tarq_dropped_log_lines_total", "counter", "Log lines dropped because nobody read them.",
             accounts.droppedLogLines);
}

uint64_t ResidentBytes() {
  uint64_t pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

void AddProcess(Exposition& out) {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  auto seconds = [](const timeval& time) { return static_cast<double>(time.tv_sec) + time.tv_usec / 1e6; };
  out.Single("process_resident_memory_bytes", "gauge", "Resident memory.", ResidentBytes());
  out.Single("process_cpu_seconds_total", "counter", "Processor time used.",
             seconds(usage.ru_utime) + seconds(usage.ru_stime));
}

}  // namespace

std::string MetricsText(const Accounts& accounts) {
  Exposition out;
  AddChannel(out, accounts.channel);
  AddQueues(out, accounts);
  AddWorker(out, accounts);
  AddRecords(out, accounts);
  AddSubscriptions(out, accounts);
  AddOutputs(out, accounts);
  AddPlatform(out, accounts);
  AddProcess(out);
  return out.Take();
}

}  // namespace tarq::host
