#include "iam/platform/Color.h"

#include <charconv>

namespace iam {
namespace {

std::string_view digits(std::string_view text) {
  if (!text.empty() && text.front() == '#') text.remove_prefix(1);
  return text;
}

}  // namespace

bool Color::isValidHexString(std::string_view text) {
  auto d = digits(text);
  if (d.size() != 6) return false;
  for (char c : d) {
    bool hex = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    if (!hex) return false;
  }
  return true;
}

Color Color::colorWithHexString(std::string_view text) {
  if (!isValidHexString(text)) return Color{};
  auto d = digits(text);
  unsigned value = 0;
  std::from_chars(d.data(), d.data() + d.size(), value, 16);
  return Color{((value >> 16) & 0xff) / 255.0, ((value >> 8) & 0xff) / 255.0, (value & 0xff) / 255.0, 1.0};
}

}  // namespace iam
