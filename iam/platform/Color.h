#pragma once

#include <string_view>

namespace iam {

// An sRGB colour with components in [0, 1].
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;

  // Six hexadecimal digits "RRGGBB", with or without a leading '#', either case. Any other text
  // gives opaque black, so that a bad colour from the service still renders.
  static Color colorWithHexString(std::string_view text);
  static bool isValidHexString(std::string_view text);

  friend bool operator==(const Color&, const Color&) = default;
};

}  // namespace iam
