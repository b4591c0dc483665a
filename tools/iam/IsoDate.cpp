#include "tools/iam/IsoDate.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <string_view>

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

std::optional<Date> parseIsoDate(const std::string& text) {
  std::tm tm{};
  int consumed = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour,
                  &tm.tm_min, &tm.tm_sec, &consumed) != 6)
    return std::nullopt;
  std::string_view rest = std::string_view(text).substr(static_cast<std::size_t>(consumed));
  double fraction = 0;
  if (!rest.empty() && rest[0] == '.') {
    std::size_t digits = 1;
    for (double scale = 0.1; digits < rest.size() && rest[digits] >= '0' && rest[digits] <= '9'; ++digits, scale /= 10)
      fraction += (rest[digits] - '0') * scale;
    if (digits == 1) return std::nullopt;
    rest.remove_prefix(digits);
  }
  long offset = 0;
  if (rest == "Z") {
  } else if (rest.size() == 6 && (rest[0] == '+' || rest[0] == '-') && rest[3] == ':') {
    int hours = 0, minutes = 0;
    if (std::sscanf(std::string(rest.substr(1)).c_str(), "%2d:%2d", &hours, &minutes) != 2) return std::nullopt;
    offset = (rest[0] == '-' ? -1 : 1) * (hours * 3600L + minutes * 60L);
  } else {
    return std::nullopt;
  }
  if (tm.tm_mon < 1 || tm.tm_mon > 12 || tm.tm_mday < 1 || tm.tm_mday > 31 || tm.tm_hour > 23 || tm.tm_min > 59 ||
      tm.tm_sec > 60)
    return std::nullopt;
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  const std::time_t seconds = timegm(&tm);
  return dateWithTimeIntervalSince1970(static_cast<double>(seconds - offset) + fraction);
}

}  // namespace iam::tool
