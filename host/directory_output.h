// Samples as files of their own in a directory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "host/output.h"

namespace tarq::host {

/// Writes each sample, its bytes untouched, to a file named TIME-SEQUENCE-KIND-TASK.json or .pb, for example
/// "20260131T101502.123Z-000000042-flow-hop-task2.pb". TIME is the collection's in UTC, SEQUENCE the sample's number in
/// this run, so names sort in the order of arrival. Files appear complete: they are written under a hidden name and
/// renamed. No existing file is overwritten.
class DirectoryOutput : public Output {
 public:
  /// Creates the directory where it is missing and proves that files can be written there.
  explicit DirectoryOutput(std::filesystem::path directory);

  WriteResult Write(const Subscription& subscription, const standin::Sample& sample) override;
  std::string name() const override { return "directory " + directory_.string(); }

 private:
  int Publish(const Subscription& subscription, const standin::Sample& sample);
  std::filesystem::path NextFile(const Subscription& subscription, const standin::Sample& sample);

  std::filesystem::path directory_;
  std::filesystem::path temporary_;
  uint64_t sequence_ = 0;
};

}  // namespace tarq::host
