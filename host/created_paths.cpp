#include "host/created_paths.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <system_error>
#include <utility>

namespace tarq::host {

void CreatedPaths::NoteDirectory(std::filesystem::path directory) {
  std::error_code ignored;
  while (!directory.empty() && !std::filesystem::exists(directory, ignored)) {
    paths_.push_back(directory);
    directory = directory.parent_path();
  }
}

void CreatedPaths::CreateFile(const std::filesystem::path& file) {
  int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) return;
  close(fd);
  paths_.push_back(file);
}

void CreatedPaths::TakeBack() {
  std::error_code ignored;
  // What a directory holds goes before it.
  std::ranges::sort(paths_, std::greater{}, [](const auto& path) { return path.native().size(); });
  for (const auto& path : std::exchange(paths_, {})) std::filesystem::remove(path, ignored);
}

}  // namespace tarq::host
