#pragma once

#include <functional>

namespace iam {

// What kind of screen the app runs on. A host whose app can share the screen with another app
// installs a provider before creating the manager; without one the app has the screen to itself.
// Thread-safe; the provider is called on the caller's thread.
class IdiomTools {
 public:
  using SplitScreenModeProvider = std::function<bool()>;

  static bool splitScreenMode();
  // None goes back to "never in split screen".
  static void setSplitScreenModeProvider(SplitScreenModeProvider provider);
};

}  // namespace iam
