#include "host/printable.h"

#include <utf8.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace tarq::host {
namespace {

constexpr struct {
  uint32_t first, last;
} kUnprintable[] = {{0x00, 0x1f},     {0x7f, 0x9f},     {0x61c, 0x61c},  {0x200b, 0x200f},
                    {0x2028, 0x202e}, {0x2060, 0x2069}, {0xfeff, 0xfeff}};

bool IsPrintable(uint32_t c) {
  return std::ranges::none_of(kUnprintable, [c](auto range) { return range.first <= c && c <= range.last; });
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string valid, shown;
  utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid), '?');
  for (auto at = valid.begin(); at != valid.end();) {
    uint32_t c = utf8::next(at, valid.end());
    utf8::append(IsPrintable(c) ? c : '?', std::back_inserter(shown));
  }
  return shown;
}

}  // namespace tarq::host
