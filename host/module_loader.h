// The module, loaded from its shared library.
#pragma once

#include <cstdint>
#include <string>

namespace tarq::host {

/// The module's entry points. The library stays loaded for good: threads may still run in it.
class Module {
 public:
  /// Loads the library at `path`. When `path` is empty it looks for libsavro_tarq.so beside the program, then in
  /// ../module from there, then along the loader's search. Throws `std::runtime_error` with value and remedy.
  explicit Module(const std::string& path);

  /// Starts the module. Returns 0, or the failing step's code.
  uint32_t Init(uint32_t moduleId) const { return init_(moduleId); }
  /// Stops it: its channel, its queue and its event loop. The worker thread ends soon after.
  uint32_t Destroy() const { return destroy_(); }

 private:
  uint32_t (*init_)(uint32_t);
  uint32_t (*destroy_)();
};

}  // namespace tarq::host
