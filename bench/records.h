// The records that everything here is measured with: made up, the same in every run.
#pragma once

#include <cstddef>
#include <random>
#include <vector>

#include "platform/message.h"

namespace tarq::bench {

using Random = std::mt19937;

/// A plausible record: counts of a few digits, usual ports and names; a fifth of the flows IPv6.
void Fill(FlowEntry& entry, Random& random);
void Fill(FlowHopEntry& entry, Random& random);
void Fill(NativeIpEntry& entry, Random& random);

/// So many records. What their pointers lead to is static.
template <class Entry>
std::vector<Entry> MakeRecords(size_t count) {
  Random random(1);
  std::vector<Entry> records(count);
  for (Entry& entry : records) Fill(entry, random);
  return records;
}

}  // namespace tarq::bench
