#include "tools/iam/TimelinePage.h"

namespace iam::tool {

// Generated at build time from timeline.html.
extern const char kTimelinePageTemplate[];

namespace {

constexpr std::string_view kLinesSlot = "@TIMELINE_LINES@";
constexpr std::string_view kJourneySlot = "@TIMELINE_JOURNEY@";

}  // namespace

std::string scriptSafeJson(std::string_view json) {
  std::string out;
  out.reserve(json.size() + json.size() / 16);
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    // These characters occur only inside JSON strings, where an escape stands for the same text.
    if (c == '<') {
      out += "\\u003c";
    } else if (c == '>') {
      out += "\\u003e";
    } else if (c == '&') {
      out += "\\u0026";
    } else if (c == '\xE2' && json.substr(i + 1, 2) == "\x80\xA8") {
      out += "\\u2028";
      i += 2;
    } else if (c == '\xE2' && json.substr(i + 1, 2) == "\x80\xA9") {
      out += "\\u2029";
      i += 2;
    } else {
      out += c;
    }
  }
  return out;
}

std::string timelinePage(std::string_view lines, std::string_view journey) {
  const std::string_view page = kTimelinePageTemplate;
  const auto linesAt = page.find(kLinesSlot);
  const auto journeyAt = page.find(kJourneySlot);
  std::string out;
  out.reserve(page.size() + lines.size() + journey.size() + lines.size() / 16);
  out += page.substr(0, linesAt);
  out += scriptSafeJson(lines);
  out += page.substr(linesAt + kLinesSlot.size(), journeyAt - linesAt - kLinesSlot.size());
  out += scriptSafeJson(journey);
  out += page.substr(journeyAt + kJourneySlot.size());
  return out;
}

}  // namespace iam::tool
