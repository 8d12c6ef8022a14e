// Files and directories that a start has created, taken back when it fails.
#pragma once

#include <filesystem>
#include <vector>

namespace tarq::host {

/// Removes on destruction what came into being since it was noted, unless `Keep` was called. A directory is removed
/// only when it is empty.
class CreatedPaths {
 public:
  CreatedPaths() = default;
  CreatedPaths(const CreatedPaths&) = delete;
  CreatedPaths& operator=(const CreatedPaths&) = delete;
  ~CreatedPaths();

  /// Notes a path that is about to be created, with those of its parents that do not exist yet. One that exists is left
  /// alone.
  void Note(std::filesystem::path path);
  void Keep() { paths_.clear(); }

 private:
  std::vector<std::filesystem::path> paths_;
};

}  // namespace tarq::host
