#include "tools/iam/IsoDate.h"

#include <chrono>
#include <cstdio>

namespace iam::tool {

std::string isoDate(Date date) {
  using namespace std::chrono;
  const auto seconds = floor<std::chrono::seconds>(date);
  const auto days = floor<std::chrono::days>(seconds);
  const year_month_day ymd{days};
  const hh_mm_ss time{seconds - days};
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02ld:%02ld:%02ldZ", static_cast<int>(ymd.year()),
                static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                static_cast<long>(time.hours().count()), static_cast<long>(time.minutes().count()),
                static_cast<long>(time.seconds().count()));
  return text;
}

}  // namespace iam::tool
