#pragma once

#include <atomic>

namespace iam {

// The switch behind `ZTInAppMarketingManagerLogic::logInfoEnabled`: info lines that consult it are
// written (and formatted) only when it is on. Off by default; a host or tool may turn it on at run
// time. It lives here, below every folder that logs, so that the manager can own it without lower
// folders including the manager.
class InfoLogSwitch {
 public:
  static bool logInfoEnabled() { return enabled().load(std::memory_order_relaxed); }
  static void setLogInfoEnabled(bool on) { enabled().store(on, std::memory_order_relaxed); }

 private:
  static std::atomic<bool>& enabled() {
    static std::atomic<bool> value{false};
    return value;
  }
};

}  // namespace iam
