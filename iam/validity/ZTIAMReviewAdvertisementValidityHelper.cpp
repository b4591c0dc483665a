#include "iam/validity/ZTIAMReviewAdvertisementValidityHelper.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <string>
#include <system_error>

#include "iam/platform/Clock.h"

namespace iam {
namespace {

constexpr double kDefaultDayInterval = 60.0;

// Reads the leading decimal number of a text the way the host's text-to-number conversion does:
// leading blanks and a sign are accepted, trailing text is ignored. None when no number starts it.
std::optional<double> leadingDecimalNumber(const std::string& text) {
  std::size_t i = text.find_first_not_of(" \t\n\r\f\v");
  if (i == std::string::npos) return std::nullopt;
  bool negative = false;
  if (text[i] == '+' || text[i] == '-') {
    negative = text[i] == '-';
    ++i;
  }
  // from_chars would also take "inf" and "nan", which are no numbers here.
  if (i >= text.size() || !(std::isdigit(static_cast<unsigned char>(text[i])) || text[i] == '.')) {
    return std::nullopt;
  }
  double value = 0;
  const char* first = text.data() + i;
  auto [end, ec] = std::from_chars(first, text.data() + text.size(), value, std::chars_format::general);
  if (ec != std::errc() || end == first) return std::nullopt;
  return negative ? -value : value;
}

}  // namespace

double ZTIAMReviewAdvertisementValidityHelper::dayIntervalBetweenReviewQuestionsFor(
    const AdvertisementType& advertisement) {
  auto text = advertisement.resourceValueFor("minimumDaysInterval");
  if (!text) return kDefaultDayInterval;
  auto days = leadingDecimalNumber(*text);
  if (days && *days > 0) return *days;
  return kDefaultDayInterval;
}

bool ZTIAMReviewAdvertisementValidityHelper::isReviewAdvertisementQuestionValid(
    const AdvertisementType& advertisement, const ZTIAMAdvertisementStats& advertisementStats) {
  auto lastShown = advertisementStats.mostRecentImpressionDate();
  if (!lastShown) return true;
  // A clock moved back must not lock the question out, so the distance counts either way.
  double seconds = std::fabs(timeIntervalBetween(*lastShown, Clock::currentDate()));
  double days = seconds / 60 / 60 / 24;
  return days > dayIntervalBetweenReviewQuestionsFor(advertisement);
}

}  // namespace iam
