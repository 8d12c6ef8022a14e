// Module, stand-in and delivery in one process, under load and faults: every message and record ends up in one count.
#include "support/books.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <future>

#include "host/accounts.h"
#include "host/metrics.h"
#include "host/module_loader.h"
#include "host/text_output.h"
#include "standin/event_loop.h"
#include "standin/packed_list.h"
#include "standin/registry.h"

/// The module's clock: seconds that it is ahead, or that it fails.
std::atomic<int> g_clockAhead = 0;
std::atomic<bool> g_clockFails = false;
extern "C" int gettimeofday(timeval* now, void*) noexcept {
  timespec time;
  clock_gettime(CLOCK_REALTIME, &time);
  *now = {time.tv_sec + g_clockAhead, time.tv_nsec / 1000};
  return g_clockFails ? -1 : 0;
}

namespace tarq::host {
namespace {

using namespace std::chrono_literals;
using testing::Contains, testing::HasSubstr;

std::string Framed(uint32_t msgId, const void* payload, size_t length) {
  const uint32_t header[] = {msgId, static_cast<uint32_t>(length)};
  return std::string(reinterpret_cast<const char*>(header), sizeof header)
      .append(static_cast<const char*>(payload), length);
}

/// `count` records of one kind in messages of `perMessage`, all of one period.
template <class Entry>
std::string Messages(uint32_t count, uint32_t perMessage, Entry entry = {}, uint32_t period = 7) {
  entry.periodId = period;
  std::string frames;
  wire::ListPacker<Entry> packer(wire::kMaxMessageLength);
  while (count > 0) {
    for (uint32_t i = std::min(count, perMessage); i > 0; --i, --count) packer.Add(entry);
    const auto list = packer.Take();
    frames += Framed(wire::MsgIdOf(entry), list.data(), list.size());
  }
  return frames;
}

NativeIpEntry NativeIp() {
  NativeIpEntry entry{};
  entry.ifName = "eth0";
  return entry;
}

std::string AllKinds(uint32_t records, uint32_t perMessage) {
  return Messages<FlowEntry>(records, perMessage) + Messages<FlowHopEntry>(records, perMessage) +
         Messages(records, perMessage, NativeIp());
}

FrameworkTable& Table() {
  FrameworkTable* table = nullptr;
  COMP_GetVTable(1000, 1000, &table);
  return *table;
}

/// The module on the stand-in, with subscriptions whose samples go to /dev/null.
struct Running : testing::Test {
  Running() {
    std::signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(standin::OpenDatabase(database_), "");
    auto length = [](const Subscription&, const standin::Sample& sample) { return sample.data; };
    delivery_.AddOutput(std::make_unique<TextOutput>(null_, "null", length), subscriptions_);
    standin::SetLogHandler([this](uint32_t level, std::string_view text) {
      if (level != kLogFailure) return;
      lines_.Take(text);
      std::lock_guard lock(mutex_);
      failures_.emplace_back(text);
    });
    standin::SetSampleHandler([this](standin::Sample&& sample) {
      lastTimestamp_ = static_cast<int64_t>(sample.collectTimestamp);
      delivery_.Take(std::move(sample));
    });
    standin::SetChannelPort(0);
    EXPECT_EQ(module_.Init(1), 0u);
    for (const Subscription& subscription : subscriptions_) Subscribe(subscription);
    Cycle();
    const sockaddr_in address{AF_INET, htons(standin::ChannelPort()), {inet_addr("127.0.0.1")}, {}};
    EXPECT_EQ(connect(channel_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~Running() override {
    module_.Destroy();
    EXPECT_TRUE(standin::JoinTasks(20s));
    standin::StopDelivery();
    EXPECT_TRUE(delivery_.Stop(Soon()));
    standin::CloseDatabase();
    std::filesystem::remove_all(folder_);
  }

  void Subscribe(const Subscription& subscription) {
    TaskDescription description{};
    description.codeType = subscription.encoding;
    description.sampleIntervalMs = subscription.intervalMs;
    standin::AddTask(subscription.kind->path, subscription.tlmId(), subscription.taskId(), description);
  }

  /// Sends frames and waits until the channel has received so many more messages and handed them over.
  void Send(const std::string& frames, uint64_t messages) {
    const uint64_t wanted = standin::GetChannelCounters().messages + messages;
    EXPECT_EQ(send(channel_, frames.data(), frames.size(), MSG_NOSIGNAL), static_cast<ssize_t>(frames.size()));
    EXPECT_TRUE(Eventually([&] { return standin::GetChannelCounters().messages == wanted; }));
    EXPECT_TRUE(standin::PassLoops(20s));
  }
  static uint64_t Count(const std::string& frames) {
    uint64_t count = 0;
    for (size_t at = 0; at < frames.size(); ++count) {
      at += sizeof(wire::FrameHeader) + reinterpret_cast<const wire::FrameHeader*>(&frames[at])->msgLen;
    }
    return count;
  }
  void Send(const std::string& frames) { Send(frames, Count(frames)); }

  /// Has a collection cycle now, in place of the timer's, and what follows from it.
  void Cycle() {
    auto* const post =
        reinterpret_cast<uint32_t (*)(uint32_t)>(dlsym(library_, "SAVRO_TARQ_STATS_PushStatsEventToQue"));
    post(++second_);
    EXPECT_TRUE(Eventually([] {
      const auto queues = standin::Queues();
      return standin::PassLoops(20s) &&
             std::ranges::all_of(queues, [](const standin::QueueStatus& queue) { return queue.depth == 0; });
    }));
    EXPECT_TRUE(standin::PassLoops(20s) && standin::WaitDelivered(20s) && delivery_.WaitIdle(Soon()));
  }

  /// Keeps the worker busy until the result is destroyed.
  std::shared_ptr<void> HoldWorker() {
    auto gate = std::make_shared<std::promise<void>>();
    standin::Objects<standin::EventLoop>().All().front()->Post(
        [open = std::make_shared<std::future<void>>(gate->get_future())] { open->wait(); });
    return {gate.get(), [gate](void*) { gate->set_value(); }};
  }

  Accounts Take() { return CollectAccounts(subscriptions_, delivery_, lines_); }
  uint64_t Delivered() {
    uint64_t records = 0;
    for (const SubscriptionAccount& account : Take().subscriptions) records += account.output.delivered.records;
    return records;
  }
  void ExpectBalance() {
    EXPECT_EQ(test::Books(MetricsText(Take())).Imbalance(), "");
    EXPECT_THAT(Take().Imbalances(), testing::IsEmpty());
  }
  std::vector<std::string> Failures() {
    std::lock_guard lock(mutex_);
    return failures_;
  }

  static Deadline Soon() { return std::chrono::steady_clock::now() + 20s; }
  template <class Condition>
  static bool Eventually(Condition condition) {
    for (const Deadline end = Soon(); !condition() && std::chrono::steady_clock::now() < end;) {
      std::this_thread::sleep_for(1ms);
    }
    return condition();
  }

  const std::string folder_ = testing::TempDir() + "tarq-books-" + std::to_string(getpid());
  const std::string database_ = (std::filesystem::create_directory(folder_), folder_ + "/perf.db");
  std::vector<Subscription> subscriptions_ =
      ParseSubscriptions({"flow:json", "flow:gpb", "flow:gpb", "flow-hop:gpb", "native-ip:json"});
  std::mutex mutex_;
  std::vector<std::string> failures_;
  std::atomic<int64_t> lastTimestamp_ = 0;
  FailureLines lines_;
  int null_ = open("/dev/null", O_WRONLY);
  Delivery delivery_{kDefaultQueueBytes, [] {}};
  Module module_{TEST_MODULE};
  void* library_ = dlopen(TEST_MODULE, RTLD_NOLOAD | RTLD_NOW);
  uint32_t second_ = 0;
  int channel_ = socket(AF_INET, SOCK_STREAM, 0);
};

TEST_F(Running, EveryKindOfMessageIsInOneCountAtEveryLoad) {
  FlowEntry tooStrange{};
  tooStrange.addressFamily = 9;
  const struct {
    const char* name;
    std::string frames;
  } loads[] = {
      {"one record", Messages<FlowEntry>(1, 1)},
      {"up to the limit of a cycle", AllKinds(666, 100)},
      {"over the limit", AllKinds(5000, 300)},
      {"records that no encoder takes", Messages<FlowEntry>(30, 10, tooStrange)},
      {"not wanted", Framed(0xDEAD, "xyz", 3) + Messages<FlowEntry>(10, 1) + Framed(1, "", 0)},
      {"empty", Framed(kFlowMsgId, "", 0)},
      {"malformed", Framed(kFlowMsgId, "xyz", 3) + Messages(3, 3, NativeIp())},
      {"empty lists", Messages<FlowHopEntry>(1, 1).replace(20, 4, 4, '\0').substr(0, 32).replace(4, 1, 1, '\x18')},
  };
  for (const auto& load : loads) {
    SCOPED_TRACE(load.name);
    Send(load.frames);
    ExpectBalance();
    Cycle();
    ExpectBalance();
  }
  const Accounts all = Take();
  EXPECT_EQ(all.recordsUnpacked(), 1 + 3 * 666 + 3 * 5000 + 30 + 10 + 3u);
  EXPECT_EQ(all.database.recordsForgotten, 0u);
  EXPECT_EQ(all.database.recordsOut, all.recordsEncoded());
  EXPECT_GE(all.limitHits(), 7u);
  EXPECT_THAT(all.Losses(),
              testing::ElementsAre(HasSubstr("1 messages not queued"), HasSubstr("1 flow messages refused"),
                                   HasSubstr("60 times a flow record was refused")));
  EXPECT_EQ(all.outcomes().unwanted, 2u);
}

TEST_F(Running, RecordsOfDisplacedPeriodsAreCountedAsForgotten) {
  std::string frames;
  for (uint32_t period = 1000; period < 1300; ++period) frames += Messages<FlowEntry>(2, 2, {}, period);
  Send(frames);
  Cycle();
  ExpectBalance();
  EXPECT_EQ(Take().database.recordsIn, 2 * 64u);
  EXPECT_EQ(Take().database.recordsForgotten, 2 * (300 - 64u));
}

TEST_F(Running, AKindWhoseTasksWentHasItsWaitingMessagesReleasedUnread) {
  Send(AllKinds(10, 1));
  for (const Subscription& one : subscriptions_) {
    if (one.kind->name == "flow") standin::DeleteTask(one.kind->path, one.tlmId(), one.taskId());
  }
  Cycle();
  EXPECT_EQ(Take().statsQueue.unread, 10u);
  EXPECT_EQ(Take().recordsUnpacked(), 20u);
  EXPECT_EQ(test::Books(MetricsText(Take())).Imbalance(), "");
}

/// Has the platform refuse every upload: what the module hands over has become too long on the way.
void RefuseUploads() {
  static const auto upload = Table().SampleDataUpload;
  Table().SampleDataUpload = [](uint32_t moduleId, const SampleBuffer* sample) {
    auto spoilt = std::make_unique<SampleBuffer>(*sample);
    spoilt->dataLen = kSampleDataCapacity + 1;
    return upload(moduleId, spoilt.get());
  };
}

/// Makes every descriptor of the database's files one that cannot be written.
void TurnReadOnly(const std::string& database) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code none;
    const std::string target = std::filesystem::read_symlink(entry, none);
    if (!target.starts_with(database)) continue;
    const int readOnly = open(target.c_str(), O_RDONLY);
    dup2(readOnly, std::stoi(entry.path().filename()));
    close(readOnly);
  }
}

void LimitFileSize(rlim_t bytes) {
  const rlimit limit{bytes, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &limit);
}

/// A process of its own that holds the database's write lock.
sqlite3* g_other = nullptr;

/// What goes wrong while messages come, the failure that is logged, and how it is mended.
struct Fault {
  const char* name;
  void (*strike)(Running&);
  const char* line;
  void (*mend)(Running&);
};
void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }

const FrameworkTable kSound = Table();
void MendTable(Running&) { Table() = kSound; }

const Fault kFaults[] = {
    {"EventQueueFullInASubscriptionStorm",
     [](Running& system) {
       auto hold = system.HoldWorker();
       for (int i = 0; i < 1100; ++i) system.Subscribe(system.subscriptions_[0]);
       EXPECT_GE(system.Take().eventQueue.refused, 1100u - 1024);
     },
     "[TARQ_EVENT_Push] Write queue fail. eleCnt: 0.", [](Running&) {}},
    {"StatsQueueFull",
     [](Running& system) {
       std::string tiny;
       while (tiny.size() < 9 * 20'000) tiny += Framed(kFlowMsgId, "x", 1);
       auto hold = system.HoldWorker();
       EXPECT_EQ(send(system.channel_, tiny.data(), tiny.size(), MSG_NOSIGNAL), static_cast<ssize_t>(tiny.size()));
       hold.reset();
       EXPECT_TRUE(system.Eventually([&] { return system.Take().statsQueue.refused > 0; }));
       EXPECT_TRUE(system.Eventually([&] {
         system.Cycle();
         return system.Take().messages[1].refused + system.Take().statsQueue.refused == 20'000;
       }));
     },
     "[NTVTARQ_STATS_QUE_Push] Write queue fail. eleCnt: 0, curr que element : 4096.", [](Running&) {}},
    {"DatabaseHeldByAnother",
     [](Running& system) {
       sqlite3_open(system.database_.c_str(), &g_other);
       EXPECT_EQ(sqlite3_exec(g_other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
     },
     "database is locked", [](Running&) { sqlite3_close(g_other); }},
    {"DatabaseOnAFullDisk", [](Running&) { LimitFileSize(100); }, "[database] cannot",
     [](Running&) { LimitFileSize(RLIM_INFINITY); }},
    {"DatabaseReadOnly", [](Running& system) { TurnReadOnly(system.database_); }, "[database] cannot", nullptr},
    {"DatabaseGone",
     [](Running& system) {
       for (const auto& file : std::filesystem::directory_iterator(system.folder_)) remove(file.path());
     },
     "moved or deleted", nullptr},
    {"ClockAnHourAhead", [](Running&) { g_clockAhead = 3600; }, "", [](Running&) { g_clockAhead = 0; }},
    {"ClockAnHourBehind", [](Running&) { g_clockAhead = -3600; }, "", [](Running&) { g_clockAhead = 0; }},
    {"ClockFails", [](Running&) { g_clockFails = true; }, "Get collect timestamp failed",
     [](Running&) { g_clockFails = false; }},
    {"UploadsRefused", [](Running&) { RefuseUploads(); }, "[NTVTARQ_UploadDataToTlm] SampleDataUpload failed, ret: 1.",
     MendTable},
    {"UploadSlotNull", [](Running&) { Table().SampleDataUpload = nullptr; },
     "[NTVTARQ_UploadDataToTlm] savroVtbl is NULL.", MendTable},
    {"NoBuffers", [](Running&) { Table().BufAlloc = [](uint32_t, uint32_t) -> void* { return nullptr; }; },
     "[TARQ_STATS_IPC_PushMsgToStatsQue] Buff alloc failed buff is NULL", MendTable},
};

class EachFault : public Running, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Books, EachFault, testing::ValuesIn(kFaults),
                         [](const auto& test) { return test.param.name; });

TEST_P(EachFault, LeavesTheBooksBalancedAndIsOverOnceMended) {
  const Fault& fault = GetParam();
  const uint64_t perLoad = 3 * 700 + 2 * 700;  // three tasks for flows, one for each other kind
  const std::string load = AllKinds(700, 50);
  Send(load);
  Cycle();
  EXPECT_EQ(Delivered(), perLoad);
  fault.strike(*this);
  Send(load);
  Cycle();
  ExpectBalance();
  if (*fault.line != 0) {
    EXPECT_THAT(Failures(), Contains(HasSubstr(fault.line)));
  }
  const auto now = std::chrono::system_clock::now().time_since_epoch() / 1ms;
  EXPECT_NEAR(lastTimestamp_, g_clockFails ? 0 : now + g_clockAhead * 1000, 60'000);
  if (fault.mend != nullptr) fault.mend(*this);
  const uint64_t before = Delivered(), failedBefore = Take().database.failures;
  Send(load);
  Cycle();
  EXPECT_EQ(Delivered(), before + perLoad);
  EXPECT_TRUE(fault.mend == nullptr || Take().database.failures == failedBefore);
  ExpectBalance();
}

}  // namespace
}  // namespace tarq::host
