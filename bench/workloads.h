// What is measured: each workload goes once over the same records. Names are KIND/ENCODING/WHO for the encoders and
// their peers, path/KIND/ENCODING/RECORDSxTASKS for the whole way of a message through the module.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tarq::bench {

inline constexpr size_t kRecords = 4096;

struct Workload {
  std::string name;
  std::function<void()> run;
};

/// All of them. Throws `std::runtime_error` when a peer does not write what the module writes.
std::vector<Workload> MakeWorkloads();

}  // namespace tarq::bench
