#include <unistd.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <limits>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "iam/ArchivableClasses.h"
#include "iam/capi/StatsJson.h"
#include "iam/manager/ZTInAppMarketingManager.h"
#include "iam/model/ZTIAMAdvertisementDisplayType.h"
#include "iam/platform/Application.h"
#include "iam/platform/Bundle.h"
#include "iam/platform/Clock.h"
#include "iam/platform/IdiomTools.h"
#include "iam/platform/InfoLogSwitch.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/platform/RunLoop.h"
#include "iam/platform/SKStoreReviewController.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "iam/platform/ViewController.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/ZTPopupConductor.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/IAMWebService.h"
#include "iam/stats/ZTIAMAdvertisementEvent.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "tools/iam/Commands.h"
#include "tools/iam/IsoDate.h"
#include "tools/iam/TimelinePage.h"
#include "tools/refservice/ReferenceMarketingService.h"

namespace iam::tool {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

constexpr const char* kAds = ReferenceMarketingService::kAdvertisementsMethod;
constexpr const char* kRanked = ReferenceMarketingService::kNativeQualityNetworkMethod;
// How long any one wait for the library may take in real time before the run is given up.
constexpr TimeInterval kSettleTimeout = 20;

// A journey line the simulator refuses; carries the message for the user.
struct JourneyError {
  std::string message;
};

// One journey line, checked before the run starts.
struct Step {
  std::size_t line = 0;
  std::string key;
  json value;
};

// Journey lines hold one scalar step each; anything nested deeper is not kept, so no input
// builds a deep tree.
json parseJourneyLine(const std::string& text) {
  return json::parse(
      text, [](int depth, json::parse_event_t, json&) { return depth <= 2; }, false);
}

Step checkedStep(const json& line, bool launched) {
  if (line.is_discarded()) throw JourneyError{"not a JSON object"};
  if (!line.is_object() || line.size() != 1) throw JourneyError{"expected an object with one step"};
  const std::string key = line.begin().key();
  const json& value = line.begin().value();
  const auto expect = [&key](bool holds, const char* what) {
    if (!holds) throw JourneyError{"\"" + key + "\" takes " + what};
  };
  if (key == "launch") {
    expect(value.is_string(), "the app version as text");
  } else if (key == "wait") {
    // A year in the foreground is a million refresh timer ticks, each played out; longer is refused.
    expect(value.is_number() && value.get<double>() >= 0 && value.get<double>() <= 366 * 86400.0,
           "a number of seconds from 0 to 366 days");
  } else if (key == "campaign") {
    expect(value.is_string(), "a file name");
  } else if (key == "background" || key == "foreground" || key == "refresh") {
    expect(value == true, "true");
  } else if (key == "event") {
    expect(value.is_string(), "the app event key as text");
  } else if (key == "tap") {
    expect(value == "ok" || value == "dismiss" || value == "postpone", "\"ok\", \"dismiss\" or \"postpone\"");
  } else if (key == "purchase") {
    expect(value == "adFree", "\"adFree\"");
  } else if (key == "targets") {
    expect(value.is_string(), "a space key");
  } else {
    throw JourneyError{"unknown step \"" + key + "\""};
  }
  if (!launched && key != "launch" && key != "wait" && key != "campaign")
    throw JourneyError{"the app has not been launched yet"};
  return Step{0, key, value};
}

// Reads the whole journey; throws with the number of the first line it refuses.
std::vector<Step> readJourney(std::istream& in, std::size_t& number) {
  std::vector<Step> steps;
  std::string text;
  bool launched = false;
  number = 0;
  while (std::getline(in, text)) {
    ++number;
    if (text.find_first_not_of(" \t\r") == std::string::npos) continue;
    steps.push_back(checkedStep(parseJourneyLine(text), launched));
    steps.back().line = number;
    launched = launched || steps.back().key == "launch";
  }
  return steps;
}

std::string shortDisplayTypeName(ZTIAMAdvertisementDisplayType type) {
  constexpr std::string_view kPrefix = "ZTIAMAdvertisementDisplayType";
  std::string name = StringFromZTIAMAdvertisementDisplayType(type).value_or(std::to_string(type));
  return name.rfind(kPrefix, 0) == 0 ? name.substr(kPrefix.size()) : name;
}

// Prints the timeline: one JSON object a line, or readable lines. Lines come from the main
// thread and from the library's other threads, so they are written one at a time. With `keep`,
// it also keeps the JSON lines and the steps for the web page.
class Timeline {
 public:
  Timeline(std::ostream& out, bool asJson, Date start, bool keep)
      : out_(out), json_(asJson), keep_(keep), start_(start) {}

  void add(json line) {
    const double t = timeIntervalBetween(Clock::currentDate(), start_);
    std::lock_guard lock(mutex_);
    if (closed_) return;
    if (json_ || keep_) {
      std::string text = "{\"t\":" + json(t).dump() + ",\"kind\":" + line["kind"].dump();
      for (auto& [key, value] : line.items())
        if (key != "t" && key != "kind") {
          // Appended piece by piece: gcc 12 warns (-Wrestrict, a false alarm) on "," + std::string&&.
          text += ',';
          text += json(key).dump();
          text += ':';
          text += value.dump(-1, ' ', false, json::error_handler_t::replace);
        }
      text += "}";
      if (json_) out_ << text << "\n";
      if (keep_) {
        kept_ += kept_.empty() ? "[" : ",";
        kept_ += text;
        ++keptCount_;
      }
    }
    if (!json_) {
      char stamp[32];
      std::snprintf(stamp, sizeof stamp, "[%10.3fs] ", t);
      out_ << stamp << readable(line) << "\n";
    }
    out_.flush();
  }

  // The readable timeline shows each journey step above what it caused; the page places what a
  // step caused by the index of its first line.
  void step(const Step& step) {
    const double t = timeIntervalBetween(Clock::currentDate(), start_);
    std::lock_guard lock(mutex_);
    if (keep_)
      journey_.push_back({{"line", step.line}, {"t", t}, {"first", keptCount_}, {"step", {{step.key, step.value}}}});
    if (json_) return;
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "[%10.3fs] ", t);
    out_ << stamp << "step " << step.line << ": " << json{{step.key, step.value}}.dump(-1, ' ', false, json::error_handler_t::replace) << "\n";
  }

  // Nothing is printed after the final statistics.
  void close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
  }

  std::string page() {
    std::lock_guard lock(mutex_);
    return timelinePage(kept_.empty() ? "[]" : kept_ + "]", journey_.dump(-1, ' ', false, json::error_handler_t::replace));
  }

 private:
  static std::string text(const json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump(-1, ' ', false, json::error_handler_t::replace);
  }

  static std::string readable(const json& line) {
    const std::string kind = line["kind"];
    std::ostringstream s;
    s << kind << std::string(kind.size() < 9 ? 9 - kind.size() : 1, ' ');
    if (kind == "fetch") {
      s << text(line["method"]) << ": " << text(line["result"]);
    } else if (kind == "display") {
      s << text(line["advertisement"]) << " ("
        << (line["trigger"].is_null() ? std::string("no trigger") : "trigger " + text(line["trigger"])) << ", "
        << shortDisplayTypeName(line["displayType"].get<ZTIAMAdvertisementDisplayType>()) << ") via " << text(line["route"]);
    } else if (kind == "open") {
      s << text(line["url"]);
    } else if (kind == "review") {
      s << "the store review prompt was requested";
    } else if (kind == "targets") {
      s << text(line["space"]) << ":";
      if (line["targets"].empty()) s << " none";
      for (const auto& entry : line["targets"]) s << " " << text(entry["advertisement"]) << "/" << text(entry["target"]);
    } else if (kind == "log") {
      // Long messages (whole answers) show their first line only.
      std::string message = text(line["message"]);
      const auto lines = std::count(message.begin(), message.end(), '\n');
      if (lines > 0) message = message.substr(0, message.find('\n')) + " (+" + std::to_string(lines) + " lines)";
      for (char& c : message)
        if (c == '\r') c = ' ';
      s << text(line["level"]) << ": " << message;
    } else if (kind == "stats") {
      s << "launches " << text(line["launches"]);
      for (const auto& [key, count] : line["events"].items()) s << "\n              event " << key << ": " << text(count);
      for (const auto& [id, record] : line["advertisements"].items()) {
        s << "\n              " << id << ": impressions " << text(record["impressions"]) << ", clicks "
          << text(record["clicks"]) << ", dismisses " << text(record["dismisses"]) << ", postpones "
          << text(record["postpones"]);
        for (const auto& [trigger, count] : record["triggers"].items()) s << ", trigger " << trigger << " fired " << text(count);
      }
    }
    return s.str();
  }

  std::mutex mutex_;
  bool closed_ = false;          // guarded by mutex_
  std::string kept_;             // guarded by mutex_
  std::size_t keptCount_ = 0;    // guarded by mutex_
  json journey_ = json::array();  // guarded by mutex_
  std::ostream& out_;
  const bool json_;
  const bool keep_;
  const Date start_;
};

// Holds every answer of the service until the main thread has seen its request in flight, and the
// ranked apps' answer also while an advertisements request is in flight: so no answer arrives
// unnoticed, and the two answers of one refresh always reach the library in the same order.
class AnswerGate {
 public:
  // Main thread, after it has looked at the requests in flight.
  void publish(bool advertisementsInFlight) {
    std::lock_guard lock(mutex_);
    advertisementsInFlight_ = advertisementsInFlight;
    ++generation_;
    wake_.notify_all();
  }
  // Server thread, before the answer is written. Gives up after a while, so that nothing hangs.
  void holdAnswer(bool ranked) {
    std::unique_lock lock(mutex_);
    const auto seen = generation_;
    wake_.wait_for(lock, std::chrono::seconds(5),
                   [&] { return generation_ > seen && (!ranked || !advertisementsInFlight_); });
  }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  bool advertisementsInFlight_ = false;  // guarded by mutex_
  std::uint64_t generation_ = 0;         // guarded by mutex_
};

class Simulator;

// The host's handler delegate: it shows the two interstitial types itself and lets the manager
// show the rest.
class HostHandler final : public ZTInAppMarketingManagerAdvertisementHandlerDelegate {
 public:
  explicit HostHandler(Simulator& simulator) : simulator_(simulator) {}
  bool shouldHandleAdvertisementConfiguration(const AdvertisementConfigurationData& configuration,
                                              ZTInAppMarketingManager& manager) override;
  void handleAdvertisementConfiguration(const AdvertisementConfigurationData& configuration, ZTInAppMarketingManager& manager,
                                        WillShowCompletion willShowCompletion) override;

 private:
  Simulator& simulator_;
};

// Tells the simulator which answers arrived.
class AnswerObserver final : public ZTInAppMarketingManagerDelegate {
 public:
  using ZTInAppMarketingManagerDelegate::inAppMarketingManager;
  explicit AnswerObserver(Simulator& simulator) : simulator_(simulator) {}
  void inAppMarketingManager(ZTInAppMarketingManager& manager, const std::optional<AdvertisementList>&) override;
  void inAppMarketingManager(ZTInAppMarketingManager& manager, const std::optional<RankedAppList>&) override;

 private:
  Simulator& simulator_;
};

// The simulated device and its host app around the library's real manager: a plain device (not in
// split screen, no alert on top, nothing the host shows left on screen after a step), a manual clock
// and the reference service in-process. Each step returns only when everything it started has
// finished. Installs its platform services in `setUp` and restores them in `tearDown`. Main thread.
class Simulator {
 public:
  Simulator(const SimulateOptions& options, Timeline& timeline, Date start, ReferenceMarketingService& service)
      : options_(options), timeline_(timeline), start_(start), service_(service) {}

  void setUp() {
    clock_ = std::make_shared<ManualClock>(start_);
    Clock::setCurrent(clock_);
    application_ = std::make_shared<BridgedApplication>();
    application_->setKeyWindow(std::make_shared<Window>(std::make_shared<ViewController>()));
    application_->setCanOpenURLHandler([](const URL&) { return true; });
    application_->setOpenURLHandler([this](const URL& url, const URLOpenOptions&) {
      timeline_.add({{"kind", "open"}, {"url", url.absoluteString()}});
      return true;
    });
    Application::setShared(application_);
    ZTPopupConductor::setDefaultInstance(nullptr);
    IdiomTools::setSplitScreenModeProvider(nullptr);
    SKStoreReviewController::setRequestReviewHandler([this] { timeline_.add({{"kind", "review"}}); });
    InfoLogSwitch::setLogInfoEnabled(true);
    LogBridge::setSink([this](const LogRecord& record) {
      timeline_.add({{"kind", "log"}, {"level", std::string(logLevelName(record.level))}, {"message", record.message}});
    });
    service_.setRequestObserver([this](const ReferenceMarketingService::ReceivedRequest& request) {
      const std::string_view path = request.path;
      gate_.holdAnswer(path.size() >= std::string_view(kRanked).size() &&
                       path.substr(path.size() - std::string_view(kRanked).size()) == kRanked);
    });
    IAMWebService::setDefaultBaseUrl(service_.baseUrl());
  }

  // Never throws: a run that gave up still restores what it replaced.
  void tearDown() {
    try {
      dropManager();
    } catch (const std::exception&) {
      ZTInAppMarketingManager::resetSharedInstanceForTesting();
      manager_.reset();
    }
    service_.setRequestObserver(nullptr);
    LogBridge::setSink(nullptr);
    SKStoreReviewController::setRequestReviewHandler(nullptr);
    InfoLogSwitch::setLogInfoEnabled(false);
    IAMWebService::setDefaultBaseUrl(std::nullopt);
    Application::setShared(nullptr);
  }

  void step(const Step& step, const fs::path& journeyFolder) {
    const std::string& key = step.key;
    const json& value = step.value;
    if (key == "launch") {
      launch(value.get<std::string>());
    } else if (key == "wait") {
      wait(value.get<double>());
    } else if (key == "campaign") {
      fs::path path = value.get<std::string>();
      if (path.is_relative()) path = journeyFolder / path;
      if (!service_.setAnswerFromFile(kAds, path.string())) throw JourneyError{"cannot read " + path.string()};
    } else if (key == "background") {
      application_->setApplicationState(UIApplicationStateBackground);
    } else if (key == "foreground") {
      application_->setApplicationState(UIApplicationStateActive);
      settle();
      manager_->handleAppEvent("appToForeground");
    } else if (key == "refresh") {
      manager_->forceRefreshOfData();
    } else if (key == "event") {
      manager_->handleAppEvent(value.get<std::string>());
    } else if (key == "tap") {
      tap(value);
    } else if (key == "purchase") {
      purchasedAdFree_ = true;
      manager_->setBoughtAdFreeUpgrade(true);
    } else if (key == "targets") {
      json targets = json::array();
      for (const auto& target : manager_->getTargetsBySpaceKey(value.get<std::string>())) {
        const auto advertisement = target->advertisement();
        targets.push_back({{"advertisement", advertisement ? json(advertisement->advertisementId()) : json(nullptr)},
                           {"target", target->targetId()}});
      }
      timeline_.add({{"kind", "targets"}, {"space", value}, {"targets", std::move(targets)}});
    }
    settle();
  }

  void printStats() {
    settle();
    // Without a launch there is no manager; the store still reads what the preferences hold.
    std::unique_ptr<ZTIAMStatsHelper> own;
    ZTIAMStatsHelper* helper = manager_ ? &manager_->statsHelper() : (own = std::make_unique<ZTIAMStatsHelper>()).get();
    json line = statsToJson(*helper, ZTSettings::runCount());
    line["kind"] = "stats";
    timeline_.add(std::move(line));
    timeline_.close();
    if (own) own->waitUntilSavesAreFinished();
  }

  // Called by the handler delegate and the answer observer.
  void display(const AdvertisementConfigurationData& configuration, const char* route) {
    const auto& advertisement = configuration.advertisement();
    json line{{"kind", "display"}, {"advertisement", advertisement ? json(advertisement->advertisementId()) : json(nullptr)},
              {"trigger", configuration.trigger() ? json(configuration.trigger()->triggerId()) : json(nullptr)},
              {"displayType", advertisement ? advertisement->displayType() : ZTIAMAdvertisementDisplayTypeInvalid},
              {"route", route}};
    timeline_.add(std::move(line));
    lastShown_ = configuration.advertisement();
    lastShownTrigger_ = configuration.trigger();
  }

  void answered(const char* method) {
    if (!manager_) return;
    const bool ads = std::string_view(method) == kAds;
    const void* current = ads ? static_cast<const void*>(manager_->mostRecentAdvertisementResponse().get())
                              : static_cast<const void*>(manager_->mostRecentNativeQualityNetworkResponse().get());
    auto& seen = ads ? seenAdsResponse_ : seenRankedResponse_;
    // A "not modified" answer renews the response the manager holds; a new one replaces it.
    timeline_.add({{"kind", "fetch"}, {"method", method}, {"result", current == seen ? "not-modified" : "ok"}});
    seen = current;
    (ads ? adsAnswered_ : rankedAnswered_) = true;
  }

 private:
  void launch(const std::string& version) {
    dropManager();
    ZTSettings::incrementRunCount();
    Bundle::mainBundle().setInfoDictionaryValue("CFBundleShortVersionString", version);
    if (application_->applicationState() != UIApplicationStateActive)
      application_->setApplicationState(UIApplicationStateActive);
    manager_ = ZTInAppMarketingManager::create();
    seenAdsResponse_ = manager_->mostRecentAdvertisementResponse().get();
    seenRankedResponse_ = manager_->mostRecentNativeQualityNetworkResponse().get();
    manager_->addDelegate(observer_);
    manager_->setAdvertisementHandlerDelegate(handler_);
    // The host tells every new manager what the user bought.
    if (purchasedAdFree_) manager_->setBoughtAdFreeUpgrade(true);
    if (options_.ranked) manager_->setNativeQualityNetworkEnabled(true);
    manager_->setActive(true);
    settle();
    manager_->handleAppEvent("appToForeground");
    settle();
  }

  // The previous app process ends: its saves finish first.
  void dropManager() {
    if (!manager_) return;
    settle();
    manager_->removeDelegate(observer_);
    ZTInAppMarketingManager::resetSharedInstanceForTesting();
    manager_.reset();
    ZTDispatchTools::settle(kSettleTimeout);
  }

  void tap(const json& value) {
    ZTIAMAdvertisementEventType type;
    if (value == "ok") {
      type = ZTIAMAdvertisementEventTypeClick;
    } else if (value == "dismiss") {
      type = ZTIAMAdvertisementEventTypeDismiss;
    } else {
      type = ZTIAMAdvertisementEventTypePostpone;
    }
    if (!lastShown_) throw JourneyError{"nothing has been shown to tap"};
    manager_->handleAdvertisementEvent(
        ZTIAMAdvertisementEventFactory::createEventWithType(type, lastShown_, lastShownTrigger_, nullptr), nullptr, nullptr);
  }

  // Time passes from timer to timer; each fires with the clock at its due time, and what it
  // starts finishes before the clock moves on.
  void wait(double seconds) {
    const Date end = clock_->now() + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
    for (;;) {
      const auto next = RunLoop::main().nextTimerFireDate();
      if (!next || *next > end) break;
      if (*next > clock_->now()) clock_->setNow(*next);
      RunLoop::main().runUntilIdle();
      settle();
    }
    clock_->setNow(end);
    settle();
  }

  bool advertisementsInFlight() const {
    const auto& ticket = manager_->activeAdvertisementsRequestTicket();
    return ticket && !ticket->isFinished();
  }
  bool rankedInFlight() const {
    const auto& ticket = manager_->activeNativeQualityNetworkRequestTicket();
    return ticket && !ticket->isFinished();
  }

  // A request that ended without an answer reaching the observers failed.
  void noteFinishedRequests() {
    const auto check = [&](std::shared_ptr<RequestTicketType>& tracked, const std::shared_ptr<RequestTicketType>& current,
                           bool& answered, const char* method) {
      if (tracked && (tracked != current || tracked->isFinished())) {
        if (!answered) timeline_.add({{"kind", "fetch"}, {"method", method}, {"result", "failed"}});
        tracked.reset();
      }
      if (!tracked && current && !current->isFinished()) {
        tracked = current;
        answered = false;
      }
    };
    check(trackedAds_, manager_->activeAdvertisementsRequestTicket(), adsAnswered_, kAds);
    check(trackedRanked_, manager_->activeNativeQualityNetworkRequestTicket(), rankedAnswered_, kRanked);
  }

  // Runs the main loop, the background work and the requests in flight to completion.
  void settle() {
    for (int round = 0; round < 1000; ++round) {
      if (!ZTDispatchTools::settle(kSettleTimeout)) throw std::runtime_error("background work did not finish");
      if (!manager_) return;
      noteFinishedRequests();
      gate_.publish(advertisementsInFlight());
      if (!advertisementsInFlight() && !rankedInFlight()) return;
      const bool done = RunLoop::main().runUntil(
          [&] {
            noteFinishedRequests();
            gate_.publish(advertisementsInFlight());
            return !advertisementsInFlight() && !rankedInFlight();
          },
          kSettleTimeout);
      if (!done) throw std::runtime_error("a request to the service did not finish");
    }
    throw std::runtime_error("the library did not come to rest");
  }

  const SimulateOptions& options_;
  Timeline& timeline_;
  const Date start_;
  ReferenceMarketingService& service_;
  AnswerGate gate_;
  std::shared_ptr<ManualClock> clock_;
  std::shared_ptr<BridgedApplication> application_;
  std::shared_ptr<ZTInAppMarketingManager> manager_;
  const std::shared_ptr<HostHandler> handler_ = std::make_shared<HostHandler>(*this);
  const std::shared_ptr<AnswerObserver> observer_ = std::make_shared<AnswerObserver>(*this);
  std::shared_ptr<AdvertisementType> lastShown_;
  std::shared_ptr<AdvertisementTriggerType> lastShownTrigger_;
  std::shared_ptr<RequestTicketType> trackedAds_;
  std::shared_ptr<RequestTicketType> trackedRanked_;
  bool purchasedAdFree_ = false;
  bool adsAnswered_ = false;
  bool rankedAnswered_ = false;
  const void* seenAdsResponse_ = nullptr;
  const void* seenRankedResponse_ = nullptr;
};

bool HostHandler::shouldHandleAdvertisementConfiguration(const AdvertisementConfigurationData& configuration,
                                                         ZTInAppMarketingManager&) {
  const auto& advertisement = configuration.advertisement();
  const bool interstitial = advertisement && (advertisement->displayType() == ZTIAMAdvertisementDisplayTypeDfpInterstitial ||
                                              advertisement->displayType() == ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
  if (!interstitial) simulator_.display(configuration, "presenter");
  return !interstitial;
}

void HostHandler::handleAdvertisementConfiguration(const AdvertisementConfigurationData& configuration,
                                                   ZTInAppMarketingManager&, WillShowCompletion willShowCompletion) {
  simulator_.display(configuration, "host");
  // The interstitial is shown and closed within the step; it never holds the popup conductor.
  if (willShowCompletion) willShowCompletion(true);
}

void AnswerObserver::inAppMarketingManager(ZTInAppMarketingManager&, const std::optional<AdvertisementList>&) {
  simulator_.answered(kAds);
}

void AnswerObserver::inAppMarketingManager(ZTInAppMarketingManager&, const std::optional<RankedAppList>&) {
  simulator_.answered(kRanked);
}

// A temporary preferences file that is removed with its journal files.
struct TemporaryPreferences {
  std::string path;
  TemporaryPreferences() {
    std::string pattern = (fs::temp_directory_path() / "iam-simulate-XXXXXX").string();
    const int fd = mkstemp(pattern.data());
    if (fd >= 0) {
      close(fd);
      path = pattern;
    }
  }
  ~TemporaryPreferences() {
    if (path.empty()) return;
    std::error_code ignored;
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) fs::remove(path + suffix, ignored);
  }
};

}  // namespace

int runSimulate(const SimulateOptions& options, std::ostream& out, std::ostream& err) {
  const auto start = parseIsoDate(options.start);
  if (!start) {
    err << "iam simulate: --start " << options.start << " is not an ISO-8601 date and time\n";
    return 2;
  }
  std::ifstream journey(options.journey, std::ios::binary);
  if (!journey) {
    err << "iam simulate: cannot read the journey " << options.journey << "\n";
    return 2;
  }
  // A journey is refused as a whole before anything runs.
  std::vector<Step> steps;
  std::size_t number = 0;
  try {
    steps = readJourney(journey, number);
  } catch (const JourneyError& error) {
    err << options.journey << ":" << number << ": " << error.message << "\n";
    return 2;
  }
  ReferenceMarketingService service;
  if (!service.setAnswerFromFile(kAds, options.campaign)) {
    err << "iam simulate: cannot read the campaign " << options.campaign << "\n";
    return 2;
  }
  if (options.ranked && !service.setAnswerFromFile(kRanked, *options.ranked)) {
    err << "iam simulate: cannot read the ranked list " << *options.ranked << "\n";
    return 2;
  }
  TemporaryPreferences temporary;
  const std::string prefsPath = options.prefs ? *options.prefs : temporary.path;
  auto store = prefsPath.empty() ? nullptr : SQLitePreferencesStore::open(prefsPath);
  if (!store) {
    err << "iam simulate: cannot open the preferences file " << prefsPath << "\n";
    return 2;
  }
  std::ofstream page;
  if (options.html) {
    page.open(*options.html, std::ios::binary | std::ios::trunc);
    if (!page) {
      err << "iam simulate: cannot write the page " << *options.html << "\n";
      return 2;
    }
  }
  if (!service.start()) {
    err << "iam simulate: cannot start the marketing service on 127.0.0.1\n";
    return 1;
  }
  registerArchivableClasses();
  PreferencesStore::setStandard(store);

  Timeline timeline(out, options.json, *start, options.html.has_value());
  int status = 0;
  {
    Simulator simulator(options, timeline, *start, service);
    simulator.setUp();
    const fs::path folder = fs::absolute(options.journey).parent_path();
    try {
      for (const auto& step : steps) {
        number = step.line;
        timeline.step(step);
        simulator.step(step, folder);
      }
      simulator.printStats();
    } catch (const JourneyError& error) {
      err << options.journey << ":" << number << ": " << error.message << "\n";
      status = 2;
    } catch (const std::exception& error) {
      err << "iam simulate: " << error.what() << "\n";
      status = 1;
    }
    simulator.tearDown();
  }
  PreferencesStore::setStandard(nullptr);
  Clock::setCurrent(nullptr);
  service.stop();
  // A run that ended early is written too: the page shows how far it came.
  if (options.html && !(page << timeline.page() << std::flush)) {
    err << "iam simulate: cannot write the page " << *options.html << "\n";
    return status == 0 ? 1 : status;
  }
  return status;
}

}  // namespace iam::tool
