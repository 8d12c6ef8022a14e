#include "host/created_paths.h"

#include <algorithm>
#include <functional>
#include <system_error>
#include <utility>

namespace tarq::host {

CreatedPaths::~CreatedPaths() {
  std::error_code ignored;
  // What a directory holds goes before it.
  std::ranges::sort(paths_, std::greater{}, [](const auto& path) { return path.native().size(); });
  for (const auto& path : paths_) std::filesystem::remove(path, ignored);
}

void CreatedPaths::Note(std::filesystem::path path) {
  std::error_code ignored;
  while (!path.empty() && !std::filesystem::exists(path, ignored)) {
    paths_.push_back(path);
    path = path.parent_path();
  }
}

}  // namespace tarq::host
