// Files and directories that a start has created, taken back when it fails.
#pragma once

#include <filesystem>
#include <vector>

namespace tarq::host {

/// What a start brought into being, to be taken back when it fails.
class CreatedPaths {
 public:
  /// Notes a directory that is about to be created, with those of its parents that do not exist yet. One that exists is
  /// left alone.
  void NoteDirectory(std::filesystem::path directory);

  /// Creates an empty file; what has that name already is left alone. A failure is not reported: whoever opens the file
  /// next meets it.
  void CreateFile(const std::filesystem::path& file);

  /// Removes what was created, directories only where they are empty.
  void TakeBack();

 private:
  std::vector<std::filesystem::path> paths_;
};

}  // namespace tarq::host
