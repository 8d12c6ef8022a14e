#include "host/module_loader.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace tarq::host {
namespace {

constexpr const char* kLibrary = "libsavro_tarq.so";

std::string Locate(const std::string& path) {
  std::error_code ignored;
  // Without a slash the loader would search its own directories instead.
  if (!path.empty()) return path.find('/') == std::string::npos ? "./" + path : path;
  auto directory = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
  for (const auto& candidate : {directory / kLibrary, directory.parent_path() / "module" / kLibrary}) {
    if (std::filesystem::exists(candidate, ignored)) return candidate.string();
  }
  return kLibrary;
}

void* SymbolOrThrow(void* library, const std::string& path, const char* name) {
  void* symbol = dlsym(library, name);
  if (!symbol) {
    throw std::runtime_error(
        fmt::format("\"{}\" is not the module: it has no {}; name another with --module", path, name));
  }
  return symbol;
}

}  // namespace

Module::Module(const std::string& path) {
  std::string located = Locate(path);
  void* library = dlopen(located.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) throw std::runtime_error(fmt::format("module cannot be loaded: {}; name it with --module", dlerror()));
  init_ = reinterpret_cast<uint32_t (*)(uint32_t)>(SymbolOrThrow(library, located, "SAVRO_TARQ_Init"));
  destroy_ = reinterpret_cast<uint32_t (*)()>(SymbolOrThrow(library, located, "SAVRO_TARQ_Destory"));
}

}  // namespace tarq::host
