#include <nlohmann/json.hpp>
#include <simdjson.h>

#include <charconv>
#include <cstdint>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "iam/model/ZTIAMParseDiagnostics.h"
#include "iam/net/HttpRequestConfig.h"
#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/platform/Clock.h"
#include "iam/platform/InfoLogSwitch.h"
#include "iam/platform/LogBridge.h"
#include "iam/service/AdvertisementsResponseParser.h"
#include "iam/service/NativeQualityNetworkResponseParser.h"
#include "iam/stats/ZTIAMAdvertisementStats.h"
#include "iam/validity/ZTIAMAdvertisementValidityHelper.h"
#include "tools/iam/Commands.h"
#include "tools/iam/IsoDate.h"

namespace iam::tool {

namespace {

using Entries = std::vector<ZTIAMCollectingParseDiagnostics::Entry>;

// One element of the answer's list, as lint reports it.
struct Item {
  std::string path;               // "advertisements[3]"
  std::optional<std::string> id;  // its "id" when that is a string
  bool kept = false;
  Entries diagnostics;  // what the parsers dropped in it (itself included)
  std::vector<std::string> neverShows;
  std::vector<std::string> notes;
};

std::optional<std::string> stringId(simdjson::dom::element element) {
  std::string_view id;
  if (element.type() != simdjson::dom::element_type::OBJECT || element["id"].get(id) != simdjson::SUCCESS)
    return std::nullopt;
  return std::string(id);
}

// Sorts the parsers' reports by the list element they concern ("advertisements[3].triggers[0]" goes
// to 3) in one pass, so that a long list with many drops stays fast; what is left concerns the
// answer itself.
std::map<std::size_t, Entries> takeEntriesByElement(Entries& entries, std::string_view list) {
  std::map<std::size_t, Entries> byElement;
  Entries rest;
  for (auto& e : entries) {
    const std::string_view path = e.path;
    std::size_t index = 0;
    bool under = path.size() > list.size() + 1 && path.starts_with(list) && path[list.size()] == '[';
    if (under) {
      const char* last = path.data() + path.size();
      const auto [end, error] = std::from_chars(path.data() + list.size() + 1, last, index);
      under = error == std::errc() && end != last && *end == ']';
    }
    (under ? byElement[index] : rest).push_back(std::move(e));
  }
  entries = std::move(rest);
  return byElement;
}

// Runs the advertisement rules with a statistics record that has seen nothing, at the advertisement's
// start (or now, when it has started), and answers what they log when they refuse. Nothing the
// user does can lift such a refusal.
class NeverShowCheck {
 public:
  explicit NeverShowCheck(Date now) : now_(now) {}

  std::vector<std::string> reasons(const Advertisement& ad) const {
    std::vector<std::string> out;
    const Date at = ad.startDate() && *ad.startDate() > now_ ? *ad.startDate() : now_;
    std::vector<std::string> logged;
    const auto previousClock = Clock::currentShared();
    const bool previousInfo = InfoLogSwitch::logInfoEnabled();
    Clock::setCurrent(std::make_shared<ManualClock>(at));
    InfoLogSwitch::setLogInfoEnabled(true);
    LogBridge::setSink([&logged](const LogRecord& record) { logged.push_back(record.message); });
    bool valid = false;
    try {
      valid = ZTIAMAdvertisementValidityHelper::isAdvertisementValid(ad, ZTIAMAdvertisementStats());
    } catch (...) {
      logged.push_back("the rules failed on it");
    }
    LogBridge::setSink(nullptr);
    InfoLogSwitch::setLogInfoEnabled(previousInfo);
    Clock::setCurrent(previousClock);

    if (!valid) {
      std::string reason = logged.empty() ? "its display type is invalid" : logged.front();
      if (ad.endDate() && *ad.endDate() < at) {
        reason += ad.startDate() && *ad.startDate() > now_
                      ? " It ends (" + isoDate(*ad.endDate()) + ") before it starts (" + isoDate(*ad.startDate()) + ")."
                      : " It ended at " + isoDate(*ad.endDate()) + ".";
      }
      out.push_back(std::move(reason));
    }
    // A fire cap below one stops a trigger before its first firing.
    bool anyTriggerCanFire = false;
    for (const auto& trigger : ad.triggers()) {
      if (trigger->maxFireCount() && *trigger->maxFireCount() <= 0) continue;
      anyTriggerCanFire = true;
    }
    if (!ad.triggers().empty() && !anyTriggerCanFire && ad.targets().empty())
      out.push_back("none of its triggers can fire (each has a maxFireCount below 1) and it has no targets.");
    return out;
  }

 private:
  const Date now_;
};

std::vector<std::string> notesOn(const Advertisement& ad, const std::set<std::string>& keptIds, Date now) {
  std::vector<std::string> notes;
  if (ad.startDate() && *ad.startDate() > now) notes.push_back("starts at " + isoDate(*ad.startDate()));
  for (const auto& trigger : ad.triggers()) {
    if (trigger->maxFireCount() && *trigger->maxFireCount() <= 0)
      notes.push_back("trigger '" + trigger->triggerId() + "' can never fire: its maxFireCount is " +
                      std::to_string(*trigger->maxFireCount()));
  }
  // Authors expect "disabled" to stop an advertisement; the rules never read the state.
  if (ad.stateType() != ZTIAMAdvertisementStateTypeLive)
    notes.push_back("its state is " + std::to_string(static_cast<long long>(ad.stateType())) +
                    ", not live (1); the app shows it all the same: end or remove it to stop it");
  if (ad.triggers().empty() && ad.targets().empty())
    notes.push_back("it has no triggers or targets: only a forced display or a linked advertisement shows it");
  if (ad.okActionType() == ZTIAMAdvertisementActionTypeOpenAd) {
    if (!ad.okActionMeta() || ad.okActionMeta()->empty())
      notes.push_back("its OK action opens a linked advertisement but names none");
    else if (!keptIds.count(*ad.okActionMeta()))
      notes.push_back("its OK action opens advertisement '" + *ad.okActionMeta() +
                      "', which this answer does not keep");
  }
  return notes;
}

void printItem(const Item& item, std::ostream& out) {
  out << item.path;
  if (item.id) out << " '" << *item.id << "'";
  out << ": " << (item.kept ? "kept" : "dropped");
  if (item.kept && !item.neverShows.empty()) out << ", but can never show";
  out << "\n";
  for (const auto& e : item.diagnostics)
    out << "  " << (e.path.empty() ? "(root)" : e.path) << ": " << e.reason << "\n";
  for (const auto& reason : item.neverShows) out << "  can never show: " << reason << "\n";
  for (const auto& note : item.notes) out << "  note: " << note << "\n";
}

int refuse(const std::string& file, const std::string& what, const Entries& entries, std::ostream& err) {
  err << "iam lint: " << file << ": " << what << "\n";
  for (const auto& e : entries) err << "  " << (e.path.empty() ? "(root)" : e.path) << ": " << e.reason << "\n";
  return 2;
}

// Prints the items and what is left of the answer's own diagnostics; the exit status.
int report(const std::vector<Item>& items, const Entries& rest, const char* noun, std::ostream& out) {
  std::size_t kept = 0;
  std::size_t neverShow = 0;
  bool dropped = !rest.empty();
  for (const auto& item : items) {
    printItem(item, out);
    kept += item.kept;
    neverShow += item.kept && !item.neverShows.empty();
    dropped = dropped || !item.diagnostics.empty();
  }
  for (const auto& e : rest) out << (e.path.empty() ? "(root)" : e.path) << ": " << e.reason << "\n";
  out << items.size() << ' ' << noun << ": " << kept << " kept";
  if (neverShow) out << " (" << neverShow << " can never show)";
  out << ", " << items.size() - kept << " dropped\n";
  return dropped ? 1 : 0;
}

int lintAdvertisements(const std::string& file, simdjson::dom::element root, std::ostream& out, std::ostream& err) {
  const Date now = Clock::currentDate();
  const AdvertisementsResponseParser parser;
  ZTIAMCollectingParseDiagnostics diagnostics;
  auto response =
      parser.parse(root, std::make_shared<OspreyServiceContentInfo>(now, false), std::nullopt, &diagnostics);
  if (!response) return refuse(file, "not a usable advertisements answer", diagnostics.entries(), err);

  Entries rest = diagnostics.entries();
  auto byElement = takeEntriesByElement(rest, "advertisements");
  simdjson::dom::array list = root["advertisements"].get_array().value_unsafe();
  std::vector<Item> items;
  std::vector<std::shared_ptr<Advertisement>> parsed;
  std::set<std::string> keptIds;
  for (auto element : list) {
    Item item;
    item.path = "advertisements[" + std::to_string(items.size()) + "]";
    item.id = stringId(element);
    item.diagnostics = std::move(byElement[items.size()]);
    auto ad = parser.advertisementParser().parse(element);
    item.kept = ad != nullptr;
    if (ad) keptIds.insert(ad->advertisementId());
    parsed.push_back(std::move(ad));
    items.push_back(std::move(item));
  }
  const NeverShowCheck check(now);
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (!parsed[i]) continue;
    items[i].neverShows = check.reasons(*parsed[i]);
    items[i].notes = notesOn(*parsed[i], keptIds, now);
  }
  return report(items, rest, "advertisements", out);
}

int lintRanked(const std::string& file, simdjson::dom::element root, std::ostream& out, std::ostream& err) {
  const NativeQualityNetworkResponseParser parser;
  ZTIAMCollectingParseDiagnostics diagnostics;
  auto response = parser.parse(root, std::make_shared<OspreyServiceContentInfo>(Clock::currentDate(), false),
                               std::nullopt, &diagnostics);
  if (!response) return refuse(file, "not a usable native quality network answer", diagnostics.entries(), err);

  Entries rest = diagnostics.entries();
  auto byElement = takeEntriesByElement(rest, "rankedApps");
  simdjson::dom::array list = root["rankedApps"].get_array().value_unsafe();
  std::vector<Item> items;
  for (auto element : list) {
    Item item;
    item.path = "rankedApps[" + std::to_string(items.size()) + "]";
    item.id = stringId(element);
    item.diagnostics = std::move(byElement[items.size()]);
    item.kept = parser.rankedAppParser().parse(element) != nullptr;
    items.push_back(std::move(item));
  }
  return report(items, rest, "ranked apps", out);
}

// simdjson does not say where the text breaks; an author needs the line and column.
std::string whereJsonBreaks(const std::string& text) {
  try {
    [[maybe_unused]] const auto parsed = nlohmann::json::parse(text);
  } catch (const nlohmann::json::parse_error& e) {
    std::size_t line = 1;
    std::size_t column = 1;
    for (std::size_t i = 0; i + 1 < e.byte && i < text.size(); ++i) {
      column = text[i] == '\n' ? 1 : column + 1;
      line += text[i] == '\n';
    }
    return " (line " + std::to_string(line) + ", column " + std::to_string(column) + ")";
  } catch (...) {
  }
  return "";
}

}  // namespace

int runLint(const LintOptions& options, std::ostream& out, std::ostream& err) {
  std::ifstream in(options.file, std::ios::binary);
  std::ostringstream text;
  if (!in || !(text << in.rdbuf())) {
    // An empty file reads as nothing; it is still no answer.
    if (!in.is_open()) {
      err << "iam lint: cannot read '" << options.file << "'\n";
      return 2;
    }
  }
  const simdjson::padded_string padded(text.str());
  // The library's own depth limit, so that lint passes nothing the library refuses.
  simdjson::dom::parser parser;
  simdjson::dom::element root;
  auto error = parser.allocate(padded.size(), HttpRequestConfig::kMaximumJsonDepth);
  if (!error) error = parser.parse(padded).get(root);
  if (error == simdjson::DEPTH_ERROR) {
    err << "iam lint: " << options.file << ": nested deeper than " << HttpRequestConfig::kMaximumJsonDepth
        << " levels\n";
    return 2;
  }
  if (error != simdjson::SUCCESS) {
    err << "iam lint: " << options.file << ": not valid JSON: " << simdjson::error_message(error)
        << whereJsonBreaks(text.str()) << "\n";
    return 2;
  }
  return options.ranked ? lintRanked(options.file, root, out, err) : lintAdvertisements(options.file, root, out, err);
}

}  // namespace iam::tool
