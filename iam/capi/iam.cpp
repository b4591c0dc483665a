#include "iam/capi/iam.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "iam/ArchivableClasses.h"
#include "iam/Version.h"
#include "iam/capi/StatsJson.h"
#include "iam/manager/ZTInAppMarketingManager.h"
#include "iam/platform/Application.h"
#include "iam/platform/Bundle.h"
#include "iam/platform/Clock.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/platform/RunLoop.h"
#include "iam/platform/SKStoreReviewController.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "iam/platform/URL.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/IAMWebService.h"
#include "iam/stats/ZTIAMAdvertisementEvent.h"
#include "iam/stats/ZTIAMStatsHelper.h"

namespace {

using namespace iam;

// Long enough for the last saves of a slow disk; a destroy never hangs the host beyond it.
constexpr TimeInterval kSettleTimeout = 20;

thread_local std::string lastError;
// Callbacks running on this thread; a manager is not destroyed from inside one.
thread_local int callbackDepth = 0;

iam_status fail(iam_status status, std::string text) {
  lastError = std::move(text);
  return status;
}

iam_status succeed() {
  lastError.clear();
  return IAM_OK;
}

// Overlong forms, surrogates and code points past U+10FFFF are refused as well.
bool isUtf8(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    const auto c = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    std::uint32_t point = 0;
    if (c < 0x80) {
      ++i;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      length = 2, point = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      length = 3, point = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      length = 4, point = c & 0x07;
    } else {
      return false;
    }
    if (text.size() - i < length) return false;
    for (std::size_t k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      point = (point << 6) | (next & 0x3F);
    }
    static constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < kSmallest[length] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return false;
    i += length;
  }
  return true;
}

// A text argument: present and UTF-8, or the failure is recorded.
bool checkText(const char* text, const char* name, iam_status& status) {
  if (!text) {
    status = fail(IAM_ERR_ARGUMENT, std::string(name) + " is null");
    return false;
  }
  if (!isUtf8(text)) {
    status = fail(IAM_ERR_ARGUMENT, std::string(name) + " is not valid UTF-8");
    return false;
  }
  return true;
}

char* copyOut(const std::string& text) {
  char* copy = new char[text.size() + 1];
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

template <class Fn>
struct Callback {
  Fn fn = nullptr;
  void* context = nullptr;
};

// The host's functions. The log sink reads them from any thread.
struct Callbacks {
  std::mutex mutex;
  Callback<iam_display_fn> display;                // guarded by mutex
  Callback<iam_advertisements_fn> advertisements;  // guarded by mutex
  Callback<iam_configuration_fn> configuration;    // guarded by mutex
  Callback<iam_open_url_fn> openUrl;               // guarded by mutex
  Callback<iam_review_fn> review;                  // guarded by mutex
  Callback<iam_log_fn> log;                        // guarded by mutex

  template <class Fn>
  Callback<Fn> get(Callback<Fn> Callbacks::*member) {
    std::lock_guard lock(mutex);
    return this->*member;
  }
};

// Calls a host function, counting the depth so that a destroy from inside it is refused.
template <class Fn, class... Args>
auto call(Fn fn, void* context, Args... args) {
  struct Depth {
    Depth() { ++callbackDepth; }
    ~Depth() { --callbackDepth; }
  } depth;
  return fn(context, args...);
}

class DisplayHandler final : public ZTInAppMarketingManagerAdvertisementHandlerDelegate {
 public:
  explicit DisplayHandler(std::shared_ptr<Callbacks> callbacks) : callbacks_(std::move(callbacks)) {}

  bool shouldHandleAdvertisementConfiguration(const AdvertisementConfigurationData& configuration,
                                              ZTInAppMarketingManager&) override {
    const auto& advertisement = configuration.advertisement();
    if (advertisement) lastTrigger_[advertisement->advertisementId()] = configuration.trigger();
    const auto handler = callbacks_->get(&Callbacks::display);
    answer_ = IAM_DISPLAY_BY_MANAGER;
    if (!handler.fn || !advertisement) return true;
    const std::string id = advertisement->advertisementId();
    const std::optional<std::string> trigger =
        configuration.trigger() ? std::optional(configuration.trigger()->triggerId()) : std::nullopt;
    iam_display_request request{sizeof(iam_display_request), id.c_str(), trigger ? trigger->c_str() : nullptr,
                                static_cast<int>(advertisement->displayType())};
    answer_ = call(handler.fn, handler.context, &request);
    return answer_ != IAM_DISPLAY_HOST_WILL_SHOW && answer_ != IAM_DISPLAY_HOST_WONT_SHOW;
  }

  void handleAdvertisementConfiguration(const AdvertisementConfigurationData&, ZTInAppMarketingManager&,
                                        WillShowCompletion willShowCompletion) override {
    if (willShowCompletion) willShowCompletion(answer_ == IAM_DISPLAY_HOST_WILL_SHOW);
  }

  // The trigger of the last display request of the advertisement, so that the host's reactions
  // are counted against it as the manager's own presenter would.
  std::shared_ptr<AdvertisementTriggerType> lastTriggerOf(const std::string& advertisementId) const {
    const auto found = lastTrigger_.find(advertisementId);
    return found == lastTrigger_.end() ? nullptr : found->second;
  }

 private:
  const std::shared_ptr<Callbacks> callbacks_;
  int answer_ = IAM_DISPLAY_BY_MANAGER;
  std::map<std::string, std::shared_ptr<AdvertisementTriggerType>> lastTrigger_;
};

class Observer final : public ZTInAppMarketingManagerDelegate {
 public:
  explicit Observer(std::shared_ptr<Callbacks> callbacks) : callbacks_(std::move(callbacks)) {}

  void inAppMarketingManager(ZTInAppMarketingManager&, const std::optional<AdvertisementList>& advertisements) override {
    const auto observer = callbacks_->get(&Callbacks::advertisements);
    if (observer.fn) call(observer.fn, observer.context, advertisements ? advertisements->size() : std::size_t{0});
  }
  void inAppMarketingManager(ZTInAppMarketingManager&, const std::optional<RankedAppList>&) override {}
  void inAppMarketingManager(ZTInAppMarketingManager&, const std::shared_ptr<ZTIAMAppConfigType>&,
                             const std::shared_ptr<ZTIAMAppConfigType>&) override {
    const auto observer = callbacks_->get(&Callbacks::configuration);
    if (observer.fn) call(observer.fn, observer.context);
  }

 private:
  const std::shared_ptr<Callbacks> callbacks_;
};

// The one manager the interface serves. Handles are numbers, never addresses, so that a handle
// outliving its manager is recognised rather than followed.
struct Live {
  std::uintptr_t id = 0;
  std::shared_ptr<ZTInAppMarketingManager> manager;
  std::shared_ptr<BridgedApplication> application;
  std::shared_ptr<Callbacks> callbacks;
  std::shared_ptr<DisplayHandler> handler;
  std::shared_ptr<Observer> observer;
};

std::mutex liveMutex;
std::optional<Live> live;            // guarded by liveMutex; changed on the main thread only
std::uintptr_t lastId = 0;           // guarded by liveMutex

iam_manager* handleOf(std::uintptr_t id) { return reinterpret_cast<iam_manager*>(id); }

// The live manager for `handle`, or the failure. Calls that pass run on the main thread, where
// `live` changes, so they use it without the lock.
iam_status find(iam_manager* handle, Live*& out) {
  if (!handle) return fail(IAM_ERR_NULL_HANDLE, "the manager handle is null");
  const auto id = reinterpret_cast<std::uintptr_t>(handle);
  std::lock_guard lock(liveMutex);
  if (live && live->id == id) {
    if (!RunLoop::main().isMainThread()) return fail(IAM_ERR_THREAD, "called from a thread other than the main thread");
    out = &*live;
    return IAM_OK;
  }
  if (id <= lastId) return fail(IAM_ERR_DESTROYED, "the manager was destroyed");
  return fail(IAM_ERR_ARGUMENT, "not a manager handle");
}

// Runs `body` for a live manager; nothing it throws leaves the interface.
template <class Body>
iam_status with(iam_manager* handle, Body&& body) noexcept {
  try {
    Live* manager = nullptr;
    if (const auto status = find(handle, manager); status != IAM_OK) return status;
    lastError.clear();
    return body(*manager);
  } catch (const std::exception& error) {
    return fail(IAM_ERR_INTERNAL, error.what());
  } catch (...) {
    return fail(IAM_ERR_INTERNAL, "unknown failure");
  }
}

template <class Fn>
iam_status setCallback(iam_manager* handle, Callback<Fn> Callbacks::*member, Fn fn, void* context, const char* name) {
  return with(handle, [&](Live& manager) {
    if (!fn) return fail(IAM_ERR_ARGUMENT, std::string(name) + " is null; iam_clear_callbacks removes callbacks");
    std::lock_guard lock(manager.callbacks->mutex);
    (*manager.callbacks).*member = Callback<Fn>{fn, context};
    return IAM_OK;
  });
}

// Whether a field lies inside the struct the host passed.
template <class Struct, class Field>
bool has(const Struct& value, const Field Struct::*field) {
  const auto end = reinterpret_cast<const char*>(&(value.*field)) + sizeof(Field);
  return end <= reinterpret_cast<const char*>(&value) + value.size;
}

void installProcessHooks(const std::shared_ptr<Callbacks>& callbacks, const std::shared_ptr<BridgedApplication>& application) {
  application->setOpenURLHandler([callbacks](const URL& url, const URLOpenOptions&) {
    const auto handler = callbacks->get(&Callbacks::openUrl);
    return handler.fn && call(handler.fn, handler.context, url.absoluteString().c_str()) != 0;
  });
  application->setCanOpenURLHandler([callbacks](const URL&) { return callbacks->get(&Callbacks::openUrl).fn != nullptr; });
  Application::setShared(application);
  SKStoreReviewController::setRequestReviewHandler([callbacks] {
    const auto handler = callbacks->get(&Callbacks::review);
    if (handler.fn) call(handler.fn, handler.context);
  });
}

void removeProcessHooks() {
  LogBridge::setSink(nullptr);
  SKStoreReviewController::setRequestReviewHandler(nullptr);
  Application::setShared(nullptr);
  IAMWebService::setDefaultBaseUrl(std::nullopt);
}

}  // namespace

extern "C" {

const char* iam_last_error(void) { return lastError.c_str(); }

const char* iam_version(void) { return IAM_VERSION_STRING; }

void iam_string_free(char* text) { delete[] text; }

iam_status iam_create(const iam_config* config, iam_manager** out_manager) {
  try {
    if (!out_manager) return fail(IAM_ERR_ARGUMENT, "out_manager is null");
    *out_manager = nullptr;
    if (!config) return fail(IAM_ERR_ARGUMENT, "config is null");
    if (!has(*config, &iam_config::service_key)) return fail(IAM_ERR_ARGUMENT, "config->size is too small");
    iam_status status = IAM_OK;
    if (!checkText(config->preferences_path, "preferences_path", status) || !checkText(config->base_url, "base_url", status))
      return status;
    if (config->service_key && std::string_view(config->service_key) != IAMWebService::kServiceKey)
      return fail(IAM_ERR_ARGUMENT, "service_key is not the key this library was built with");
    const char* appVersion = has(*config, &iam_config::app_version) ? config->app_version : nullptr;
    if (appVersion && !checkText(appVersion, "app_version", status)) return status;
    const auto url = URL::URLWithString(config->base_url);
    if (!url || url->absoluteString().rfind("http", 0) != 0)
      return fail(IAM_ERR_ARGUMENT, std::string("base_url is not an http(s) URL: ") + config->base_url);

    std::lock_guard lock(liveMutex);
    if (live) return fail(IAM_ERR_STATE, "a manager exists already; destroy it first");
    auto store = SQLitePreferencesStore::open(config->preferences_path);
    if (!store) return fail(IAM_ERR_IO, std::string("cannot open the preferences file ") + config->preferences_path);

    // Driving the loop once makes this thread the main thread.
    RunLoop::main().runUntilIdle();
    registerArchivableClasses();
    PreferencesStore::setStandard(std::move(store));
    IAMWebService::setDefaultBaseUrl(std::string(config->base_url));
    Live created;
    created.callbacks = std::make_shared<Callbacks>();
    created.application = std::make_shared<BridgedApplication>();
    installProcessHooks(created.callbacks, created.application);
    ZTSettings::incrementRunCount();
    if (appVersion) Bundle::mainBundle().setInfoDictionaryValue("CFBundleShortVersionString", std::string(appVersion));
    created.manager = ZTInAppMarketingManager::create();
    created.handler = std::make_shared<DisplayHandler>(created.callbacks);
    created.observer = std::make_shared<Observer>(created.callbacks);
    created.manager->addDelegate(created.observer);
    created.manager->setAdvertisementHandlerDelegate(created.handler);
    created.id = ++lastId;
    live = std::move(created);
    *out_manager = handleOf(live->id);
    return succeed();
  } catch (const std::exception& error) {
    removeProcessHooks();
    return fail(IAM_ERR_INTERNAL, error.what());
  } catch (...) {
    removeProcessHooks();
    return fail(IAM_ERR_INTERNAL, "unknown failure");
  }
}

iam_status iam_destroy(iam_manager* manager) {
  if (!manager) return succeed();
  return with(manager, [](Live& current) {
    if (callbackDepth > 0) return fail(IAM_ERR_STATE, "a manager is not destroyed from inside its callback");
    current.manager->removeDelegate(current.observer);
    ZTInAppMarketingManager::resetSharedInstanceForTesting();
    std::optional<Live> ending;
    {
      std::lock_guard lock(liveMutex);
      ending.swap(live);
    }
    ending->manager.reset();
    // The counted events reach the preferences file before it is closed.
    ZTDispatchTools::settle(kSettleTimeout);
    removeProcessHooks();
    PreferencesStore::setStandard(nullptr);
    return IAM_OK;
  });
}

iam_status iam_set_active(iam_manager* manager, int active) {
  return with(manager, [&](Live& current) {
    current.manager->setActive(active != 0);
    return IAM_OK;
  });
}

iam_status iam_app_event(iam_manager* manager, const char* event_key) {
  return with(manager, [&](Live& current) {
    iam_status status = IAM_OK;
    if (!checkText(event_key, "event_key", status)) return status;
    current.manager->handleAppEvent(event_key);
    return IAM_OK;
  });
}

iam_status iam_set_application_state(iam_manager* manager, int state) {
  return with(manager, [&](Live& current) {
    if (state != IAM_APP_ACTIVE && state != IAM_APP_INACTIVE && state != IAM_APP_BACKGROUND)
      return fail(IAM_ERR_ARGUMENT, "unknown application state " + std::to_string(state));
    current.application->setApplicationState(static_cast<UIApplicationState>(state));
    return IAM_OK;
  });
}

iam_status iam_report_reaction(iam_manager* manager, const char* advertisement_id, int reaction) {
  return with(manager, [&](Live& current) {
    iam_status status = IAM_OK;
    if (!checkText(advertisement_id, "advertisement_id", status)) return status;
    static constexpr ZTIAMAdvertisementEventType kTypes[] = {
        ZTIAMAdvertisementEventTypeImpression, ZTIAMAdvertisementEventTypeClick, ZTIAMAdvertisementEventTypeDismiss,
        ZTIAMAdvertisementEventTypePostpone};
    if (reaction < IAM_REACTION_IMPRESSION || reaction > IAM_REACTION_POSTPONE)
      return fail(IAM_ERR_ARGUMENT, "unknown reaction " + std::to_string(reaction));
    auto advertisement = current.manager->getAdvertisementByAdvertisementId(advertisement_id);
    if (!advertisement) return fail(IAM_ERR_STATE, std::string("no advertisement ") + advertisement_id);
    auto trigger = current.handler->lastTriggerOf(advertisement_id);
    current.manager->handleAdvertisementEvent(
        ZTIAMAdvertisementEventFactory::createEventWithType(kTypes[reaction], std::move(advertisement), std::move(trigger), nullptr),
        nullptr, nullptr);
    return IAM_OK;
  });
}

iam_status iam_targets_json(iam_manager* manager, const char* space_key, char** out_json) {
  return with(manager, [&](Live& current) {
    iam_status status = IAM_OK;
    if (!out_json) return fail(IAM_ERR_ARGUMENT, "out_json is null");
    *out_json = nullptr;
    if (!checkText(space_key, "space_key", status)) return status;
    auto targets = nlohmann::json::array();
    for (const auto& target : current.manager->getTargetsBySpaceKey(space_key)) {
      const auto advertisement = target->advertisement();
      targets.push_back({{"advertisement", advertisement ? nlohmann::json(advertisement->advertisementId()) : nlohmann::json()},
                         {"target", target->targetId()}});
    }
    *out_json = copyOut(targets.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    return IAM_OK;
  });
}

iam_status iam_resources_json(iam_manager* manager, const char* advertisement_id, char** out_json) {
  return with(manager, [&](Live& current) {
    iam_status status = IAM_OK;
    if (!out_json) return fail(IAM_ERR_ARGUMENT, "out_json is null");
    *out_json = nullptr;
    if (!checkText(advertisement_id, "advertisement_id", status)) return status;
    const auto advertisement = current.manager->getAdvertisementByAdvertisementId(advertisement_id);
    if (!advertisement) return fail(IAM_ERR_STATE, std::string("no advertisement ") + advertisement_id);
    auto resources = nlohmann::json::object();
    for (const auto& [key, resource] : advertisement->resources())
      resources[key] = resource && resource->value() ? nlohmann::json(*resource->value()) : nlohmann::json();
    *out_json = copyOut(resources.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    return IAM_OK;
  });
}

iam_status iam_stats_json(iam_manager* manager, char** out_json) {
  return with(manager, [&](Live& current) {
    if (!out_json) return fail(IAM_ERR_ARGUMENT, "out_json is null");
    *out_json = nullptr;
    // Events are counted on the background pool; those reported before this call are included.
    ZTDispatchTools::waitForBackgroundIdle(kSettleTimeout);
    *out_json = copyOut(statsToJson(current.manager->statsHelper(), ZTSettings::runCount()).dump());
    return IAM_OK;
  });
}

iam_status iam_reset(iam_manager* manager) {
  return with(manager, [](Live& current) {
    current.manager->reset();
    return IAM_OK;
  });
}

int64_t iam_run_pending(void) {
  try {
    RunLoop::main().runUntilIdle();
    const auto next = RunLoop::main().nextTimerFireDate();
    if (!next) return -1;
    const double seconds = timeIntervalBetween(*next, Clock::currentDate());
    return seconds <= 0 ? 0 : static_cast<int64_t>(std::ceil(seconds * 1000));
  } catch (const std::exception& error) {
    lastError = error.what();
    return -1;
  } catch (...) {
    lastError = "unknown failure";
    return -1;
  }
}

iam_status iam_set_main_thread_waker(iam_wake_fn wake, void* context) {
  try {
    if (wake)
      RunLoop::main().setWakeHandler([wake, context] { wake(context); });
    else
      RunLoop::main().setWakeHandler(nullptr);
    return succeed();
  } catch (const std::exception& error) {
    return fail(IAM_ERR_INTERNAL, error.what());
  }
}

iam_status iam_set_display_handler(iam_manager* manager, iam_display_fn handler, void* context) {
  return setCallback(manager, &Callbacks::display, handler, context, "handler");
}

iam_status iam_set_advertisements_observer(iam_manager* manager, iam_advertisements_fn observer, void* context) {
  return setCallback(manager, &Callbacks::advertisements, observer, context, "observer");
}

iam_status iam_set_configuration_observer(iam_manager* manager, iam_configuration_fn observer, void* context) {
  return setCallback(manager, &Callbacks::configuration, observer, context, "observer");
}

iam_status iam_set_open_url_handler(iam_manager* manager, iam_open_url_fn handler, void* context) {
  return setCallback(manager, &Callbacks::openUrl, handler, context, "handler");
}

iam_status iam_allow_url_scheme(iam_manager* manager, const char* scheme) {
  return with(manager, [scheme](Live& current) {
    iam_status status = IAM_OK;
    if (!checkText(scheme, "scheme", status)) return status;
    if (!current.manager->allowURLScheme(scheme)) {
      return fail(IAM_ERR_ARGUMENT, std::string("not a URL scheme name: ") + scheme);
    }
    return IAM_OK;
  });
}

iam_status iam_set_review_handler(iam_manager* manager, iam_review_fn handler, void* context) {
  return setCallback(manager, &Callbacks::review, handler, context, "handler");
}

iam_status iam_set_log_sink(iam_manager* manager, iam_log_fn sink, void* context) {
  const auto status = setCallback(manager, &Callbacks::log, sink, context, "sink");
  if (status != IAM_OK) return status;
  return with(manager, [](Live& current) {
    LogBridge::setSink([callbacks = current.callbacks](const LogRecord& record) {
      const auto sink = callbacks->get(&Callbacks::log);
      if (sink.fn) call(sink.fn, sink.context, static_cast<iam_log_level>(record.level), record.message.c_str());
    });
    return IAM_OK;
  });
}

iam_status iam_clear_callbacks(iam_manager* manager) {
  return with(manager, [](Live& current) {
    LogBridge::setSink(nullptr);
    std::lock_guard lock(current.callbacks->mutex);
    auto& callbacks = *current.callbacks;
    callbacks.display = {};
    callbacks.advertisements = {};
    callbacks.configuration = {};
    callbacks.openUrl = {};
    callbacks.review = {};
    callbacks.log = {};
    return IAM_OK;
  });
}

}  // extern "C"
