#include "bench/workloads.h"

#include <google/protobuf/util/message_differencer.h>

#include <cstring>
#include <memory>
#include <stdexcept>

#include "bench/peers.h"
#include "bench/platform.h"
#include "bench/records.h"
#include "encode/encoders.h"
#include "frame/lifecycle.h"
#include "standin/packed_list.h"
#include "tarq.pb.h"
#include "tasks/task_callbacks.h"

namespace tarq::bench {
namespace {

constexpr size_t kRoom = 2048;
char g_out[kRoom];

/// A kind, by what the module exports for it.
template <class EntryRecord>
struct Kind {
  using Entry = EntryRecord;
  const char* name;
  int32_t (*gpb)(const Entry* entry, uint8_t* out, uint32_t room);
  int32_t (*json)(const Entry* entry, char* out, uint32_t room);
  AddTaskCallback addTask;
  DelTaskCallback delTask;
};

// clang-format off
constexpr Kind<FlowEntry>     kFlow     {"flow",      SAVRO_TARQ_FLOW_GPB_EncodeMsg,    SAVRO_TARQ_FLOW_JSON_EncodeMsg,    SAVRO_TARQ_FLOW_AddTlmTask,    SAVRO_TARQ_FLOW_DelTlmTask};
constexpr Kind<FlowHopEntry>  kFlowHop  {"flow-hop",  SAVRO_TARQ_FLOWHOP_GPB_EncodeMsg, SAVRO_TARQ_FLOWHOP_JSON_EncodeMsg, SAVRO_TARQ_FLOWHOP_AddTlmTask, SAVRO_TARQ_FLOWHOP_DelTlmTask};
constexpr Kind<NativeIpEntry> kNativeIp {"native-ip", SAVRO_NTVTARQ_GPB_EncodeMsg,      SAVRO_NTVTARQ_JSON_EncodeMsg,      SAVRO_NTVTARQ_AddTlmTask,      SAVRO_NTVTARQ_DelTlmTask};
// clang-format on

// ---- Encoders and peers ----

template <class Entry>
std::string Gpb(const Kind<Entry>& kind, const Entry& entry) {
  return {g_out, static_cast<size_t>(kind.gpb(&entry, reinterpret_cast<uint8_t*>(g_out), kRoom))};
}
template <class Entry>
std::string Json(const Kind<Entry>& kind, const Entry& entry) {
  return {g_out, static_cast<size_t>(kind.json(&entry, g_out, kRoom))};
}

template <class Entry>
void CheckPeers(const Kind<Entry>& kind, const std::vector<Entry>& records) {
  const auto check = [&kind](bool same, const char* peer) {
    if (!same) throw std::runtime_error(std::string(peer) + " writes another " + kind.name + " record");
  };
  for (const Entry& entry : records) {
    const std::string gpb = Gpb(kind, entry), json = Json(kind, entry);
    check(gpb == std::string(g_out, Protozero(entry, g_out)), "protozero");
    Tarq module, peer;
    check(module.ParseFromString(gpb) && peer.ParseFromArray(g_out, static_cast<int>(Protobuf(entry, g_out))) &&
              google::protobuf::util::MessageDifferencer::Equals(module, peer),
          "protobuf");
    check(json == std::string(g_out, Fmt(entry, g_out)), "fmt");
    check(json == std::string(g_out, Snprintf(entry, g_out)), "snprintf");
  }
}

template <class Entry>
void AddEncoders(const Kind<Entry>& kind, std::vector<Workload>& workloads) {
  const auto records = std::make_shared<const std::vector<Entry>>(MakeRecords<Entry>(kRecords));
  CheckPeers(kind, *records);
  const auto add = [&](const std::string& name, auto encode) {
    workloads.push_back({kind.name + name, [records, encode] {
                           for (const Entry& entry : *records) encode(entry);
                         }});
  };
  // The least that any encoder does: it reads the record and writes the fragment.
  const auto addCopies = [&](const std::string& name, auto encode) {
    const auto fragments = std::make_shared<std::vector<std::string>>();
    for (const Entry& entry : *records) fragments->push_back(encode(kind, entry));
    workloads.push_back({kind.name + name, [records, fragments] {
                           char record[sizeof(Entry)];
                           for (size_t i = 0; i < kRecords; ++i) {
                             std::memcpy(record, &(*records)[i], sizeof(record));
                             asm volatile("" : : "r"(record) : "memory");
                             std::memcpy(g_out, (*fragments)[i].data(), (*fragments)[i].size());
                           }
                         }});
  };
  add("/gpb/module", [&kind](const Entry& e) { kind.gpb(&e, reinterpret_cast<uint8_t*>(g_out), kRoom); });
  add("/gpb/protozero", [](const Entry& e) { Protozero(e, g_out); });
  add("/gpb/protobuf", [](const Entry& e) { Protobuf(e, g_out); });
  addCopies("/gpb/copies", Gpb<Entry>);
  add("/json/module", [&kind](const Entry& e) { kind.json(&e, g_out, kRoom); });
  add("/json/fmt", [](const Entry& e) { Fmt(e, g_out); });
  add("/json/snprintf", [](const Entry& e) { Snprintf(e, g_out); });
  addCopies("/json/copies", Json<Entry>);
}

// ---- The way of a message ----

/// The path whose tasks the module has, and these tasks.
const void* g_subscribed = nullptr;
std::vector<std::pair<DelTaskCallback, uint32_t>> g_tasks;

/// Takes the kind's records in messages of so many, with so many tasks in each of the encodings.
template <class Entry>
class Path {
 public:
  Path(const Kind<Entry>& kind, std::vector<CodeType> encodings, size_t recordsPerMessage, uint32_t tasks)
      : kind_(kind), encodings_(std::move(encodings)), tasks_(tasks) {
    wire::ListPacker<Entry> packer(wire::kMaxMessageLength);
    for (const Entry& entry : MakeRecords<Entry>(kRecords)) {
      packer.Add(entry);
      if (packer.count() == recordsPerMessage) lists_.push_back(packer.Take());
    }
    if (packer.count() > 0) lists_.push_back(packer.Take());
  }

  void Run() {
    Platform& platform = ThePlatform();
    Subscribe();
    for (const auto& list : lists_) {
      const MessageDescriptor message{list.data(), wire::MsgIdOf(Entry{}), static_cast<uint32_t>(list.size())};
      platform.onReceive(nullptr, &message, 1);
    }
    platform.uploadedRecords = 0;
    platform.Collect();
    if (platform.uploadedRecords != kRecords * tasks_ * encodings_.size()) {
      throw std::runtime_error(std::to_string(platform.uploadedRecords) + " records came out");
    }
  }

 private:
  /// Makes this path's tasks the only ones, unless they are.
  void Subscribe() {
    if (g_subscribed == this) return;
    for (const auto& [remove, taskId] : g_tasks) remove(0, taskId);
    g_tasks.clear();
    for (const CodeType encoding : encodings_) {
      for (uint32_t task = 0; task < tasks_; ++task) {
        TaskDescription description{.codeType = encoding, .sampleIntervalMs = 10'000, .opaque = {}};
        const auto taskId = static_cast<uint32_t>(g_tasks.size());
        kind_.addTask(0, taskId, &description);
        g_tasks.emplace_back(kind_.delTask, taskId);
        ThePlatform().RunWorker();
      }
    }
    g_subscribed = this;
  }

  const Kind<Entry>& kind_;
  std::vector<CodeType> encodings_;
  uint32_t tasks_;
  std::vector<std::vector<uint8_t>> lists_;
};

template <class Entry>
void AddPath(const Kind<Entry>& kind, size_t recordsPerMessage, uint32_t tasks, std::vector<Workload>& workloads) {
  const std::pair<const char*, std::vector<CodeType>> kEncodings[] = {
      {"gpb", {kCodeTypeGpb}}, {"json", {kCodeTypeJson}}, {"both", {kCodeTypeJson, kCodeTypeGpb}}};
  for (const auto& [encoding, codeTypes] : kEncodings) {
    const auto path = std::make_shared<Path<Entry>>(kind, codeTypes, recordsPerMessage, tasks);
    const std::string name = std::string("path/") + kind.name + "/" + encoding + "/" +
                             std::to_string(recordsPerMessage) + "x" + std::to_string(tasks);
    workloads.push_back({name, [path] { path->Run(); }});
  }
}

}  // namespace

std::vector<Workload> MakeWorkloads() {
  if (SAVRO_TARQ_Init(1) != 0) throw std::runtime_error("the module does not start");
  std::vector<Workload> workloads;
  AddEncoders(kFlow, workloads);
  AddEncoders(kFlowHop, workloads);
  AddEncoders(kNativeIp, workloads);
  for (const uint32_t tasks : {1u, 8u}) {
    for (const size_t recordsPerMessage : {1u, 20u, 100u, 300u}) AddPath(kFlow, recordsPerMessage, tasks, workloads);
  }
  AddPath(kFlowHop, 100, 1, workloads);
  AddPath(kNativeIp, 100, 1, workloads);
  return workloads;
}

}  // namespace tarq::bench
