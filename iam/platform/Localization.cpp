#include "iam/platform/Localization.h"

#include <memory>
#include <mutex>

namespace iam {
namespace {

std::mutex& lookupMutex() {
  static std::mutex m;
  return m;
}

// Shared so that a caller keeps the lookup it read alive while a host replaces it.
std::shared_ptr<const Localization::Lookup>& installedLookup() {
  static std::shared_ptr<const Localization::Lookup> lookup;  // guarded by lookupMutex()
  return lookup;
}

}  // namespace

void Localization::setLookup(Lookup lookup) {
  auto next = lookup ? std::make_shared<const Lookup>(std::move(lookup)) : nullptr;
  std::lock_guard lock(lookupMutex());
  installedLookup().swap(next);  // the previous one is released outside the lock
}

std::string Localization::localizedString(std::string_view key, std::string_view defaultText) {
  std::shared_ptr<const Lookup> lookup;
  {
    std::lock_guard lock(lookupMutex());
    lookup = installedLookup();
  }
  if (lookup) {
    try {
      if (auto text = (*lookup)(key); text && !text->empty()) return std::move(*text);
    } catch (...) {
      // A failing host table must not take the alert down with it; the default still reads well.
    }
  }
  return std::string(defaultText);
}

std::string Localization::ButtonTitles::cancel() { return localizedString(kCancelKey, "Cancel"); }

std::string Localization::ButtonTitles::open() { return localizedString(kOpenKey, "Open"); }

std::string Localization::PaidVersionInstalledAlertController::title() {
  return localizedString(kTitleKey, "Full version found");
}

std::string Localization::PaidVersionInstalledAlertController::messageFormatted(std::string_view appName) {
  static constexpr std::string_view kPlaceholder = "%1$@";
  std::string text =
      localizedString(kMessageKey, "You also have the full version of %1$@ installed. Open this app instead?");
  // Replaced left to right without rescanning, so a name that itself contains the placeholder
  // stays as it is.
  for (std::size_t at = text.find(kPlaceholder); at != std::string::npos;
       at = text.find(kPlaceholder, at + appName.size())) {
    text.replace(at, kPlaceholder.size(), appName);
  }
  return text;
}

}  // namespace iam
