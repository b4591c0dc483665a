#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace iam {

// The texts the library shows itself. Each has a key and an English default; a host that ships
// translations installs one lookup for all of them, which answers none for keys it does not know
// (the default is used then). Thread-safe; the lookup is called outside any lock, on the caller's
// thread, and may be called from any thread.
class Localization {
 public:
  using Lookup = std::function<std::optional<std::string>(std::string_view key)>;

  // None goes back to the defaults.
  static void setLookup(Lookup lookup);
  // The host's text for `key`, or `defaultText` when it has none (or an empty one).
  static std::string localizedString(std::string_view key, std::string_view defaultText);

  struct ButtonTitles {
    static constexpr std::string_view kCancelKey = "button.cancel";
    static constexpr std::string_view kOpenKey = "button.open";
    static std::string cancel();
    static std::string open();
  };

  // Offered when the free edition starts while the full edition is installed too.
  struct PaidVersionInstalledAlertController {
    static constexpr std::string_view kTitleKey = "alert.paidVersionInstalledAlertController.title";
    static constexpr std::string_view kMessageKey = "alert.paidVersionInstalledAlertController.message";
    static std::string title();
    // The message with "%1$@" replaced by the full edition's name.
    static std::string messageFormatted(std::string_view appName);
  };
};

}  // namespace iam
