#include "load/trial.h"

#include <algorithm>
#include <future>
#include <thread>

#include "load/host.h"
#include "load/reader.h"
#include "load/sender.h"

namespace tarq::load {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kLook{100};
constexpr Seconds kStallBegin{2};
constexpr Seconds kOnTime{4};  ///< a collection period and a little
constexpr Seconds kPatience{60};

/// Looks after a run while the sender sends.
void Watch(const Setup& setup, const Host& host, Reader& json, std::future<Offered>& sending, Result& result,
           const EverySecond& everySecond) {
  const auto start = Clock::now();
  for (double second = 1; sending.wait_for(kLook) != std::future_status::ready;) {
    const Seconds passed = Clock::now() - start;
    json.Stall(passed >= kStallBegin && passed < kStallBegin + setup.stall);
    const uint64_t memory = host.memory();
    result.memoryPeak = std::max(result.memoryPeak, memory);
    if (passed.count() >= second && everySecond) everySecond(passed, memory);
    if (passed.count() >= second) ++second;
  }
  json.Stall(false);
}

bool Quiet(const test::Books& books, uint64_t sent) {
  return books.Sum("tarq_channel_received_messages_total") * kRecordsPerMessage >= sent &&
         books.Sum("tarq_queue_depth") == 0 && books.Sum("tarq_subscription_waiting_records") == 0 &&
         books.Imbalance().empty();
}

/// The books once nothing moves any more.
test::Books Settle(const Host& host, uint64_t sent, Result& result) {
  const auto start = Clock::now();
  test::Books books = host.Metrics();
  while (!Quiet(books, sent) && Clock::now() - start < kPatience) {
    std::this_thread::sleep_for(kLook);
    books = host.Metrics();
  }
  result.late = Clock::now() - start > kOnTime;
  return books;
}

}  // namespace

uint64_t Result::lost() const { return offered - std::min(offered, std::min(json, gpb)); }

double Result::lossPercent() const {
  return offered == 0 ? 0 : 100.0 * static_cast<double>(lost()) / static_cast<double>(offered);
}

Result Run(const Setup& setup, const EverySecond& everySecond) {
  const std::string jsonSocket = setup.folder + "/json", gpbSocket = setup.folder + "/gpb";
  Reader json(jsonSocket, Reader::Format::kLines), gpb(gpbSocket, Reader::Format::kDelimited);
  Host host(setup.host, setup.folder, jsonSocket, gpbSocket, setup.queueBytes);
  Sender sender(host.port());
  Result result;
  result.memoryBefore = host.memory();
  auto sending = std::async(std::launch::async, [&] { return sender.Run(setup.rate, setup.time); });
  Watch(setup, host, json, sending, result, everySecond);
  const Offered offered = sending.get();
  const test::Books books = Settle(host, offered.records - offered.lost, result);
  result.memoryAfter = host.memory();
  result.offered = offered.records;
  result.lostBySender = offered.lost;
  const uint64_t lostMessages = books.Sum("tarq_channel_messages_total") -
                                books.Sum("tarq_channel_messages_total", {"queued"}) +
                                books.Sum("tarq_messages_malformed_total");
  result.lostByHost = lostMessages * kRecordsPerMessage + books.Sum("tarq_records_not_encoded_total");
  const std::string records = "tarq_subscription_records_total", samples = "tarq_subscription_samples_total";
  const std::string isJson = R"(encoding="json")", isGpb = R"(encoding="gpb")";
  result.json = books.Sum(records, {isJson, "\"delivered\""});
  result.gpb = books.Sum(records, {isGpb, "\"delivered\""});
  result.jsonDropped = books.Sum(records, {isJson, "\"dropped\""});
  result.gpbDropped = books.Sum(records, {isGpb, "\"dropped\""});
  result.longestEvent = Seconds(books.Value("tarq_worker_event_longest_seconds"));
  result.imbalance = books.Imbalance();
  result.exitCode = host.Stop();
  result.readersAgree = json.samples() == books.Sum(samples, {isJson, "\"delivered\""}) &&
                        gpb.samples() == books.Sum(samples, {isGpb, "\"delivered\""});
  return result;
}

}  // namespace tarq::load
