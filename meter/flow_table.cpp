#include "meter/flow_table.h"

#include <random>

#include "meter/mix.h"

namespace tarq::meter {
namespace {

uint64_t HashOf(const FlowKey& key, uint64_t seed) {
  uint64_t hash = seed;
  for (const uint64_t word : Words(key)) hash = Mix(hash ^ word) + kGoldenRatio;
  return hash;
}

uint64_t RandomSeed() {
  std::random_device device;
  return uint64_t{device()} << 32 | device();
}

constexpr size_t kFirstBuckets = 1024;
/// A table with more buckets is given back when it is cleared: wiping them all would cost every small period after it.
constexpr size_t kMaxKeptBuckets = 8192;

}  // namespace

uint64_t FlowId(const FlowKey& key) { return HashOf(key, 0); }

size_t FlowTable::Hash::operator()(const FlowKey& key) const { return HashOf(key, seed); }

FlowTable::FlowTable() : flows_(kFirstBuckets, Hash{RandomSeed()}) {}

bool FlowTable::Count(const PacketFacts& facts, Timestamp time, bool mayOpen) {
  auto flow = flows_.find(facts.key);
  if (flow == flows_.end()) {
    if (!mayOpen) return false;
    const FlowCounts opened{0, 0, time, time, facts.dscp, facts.direction, facts.sourceMac};
    flow = flows_.emplace(facts.key, opened).first;
  }
  flow->second.packets += 1;
  flow->second.bytes += facts.ipBytes;
  flow->second.last = time;
  return true;
}

void FlowTable::Clear() {
  if (flows_.bucket_count() <= kMaxKeptBuckets) return flows_.clear();
  flows_ = decltype(flows_)(kFirstBuckets, flows_.hash_function());
}

}  // namespace tarq::meter
