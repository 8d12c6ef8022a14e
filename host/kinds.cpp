#include "host/kinds.h"

#include <algorithm>

namespace tarq::host {

const Kind* FindKind(std::string_view text) {
  auto found =
      std::ranges::find_if(kKinds, [text](const Kind& kind) { return text == kind.name || text == kind.path; });
  return found == kKinds.end() ? nullptr : &*found;
}

}  // namespace tarq::host
