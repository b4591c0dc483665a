#include "iam/platform/IdiomTools.h"

#include <mutex>

namespace iam {
namespace {

std::mutex& providerMutex() {
  static std::mutex m;
  return m;
}

IdiomTools::SplitScreenModeProvider& provider() {
  static IdiomTools::SplitScreenModeProvider p;  // guarded by providerMutex()
  return p;
}

}  // namespace

bool IdiomTools::splitScreenMode() {
  SplitScreenModeProvider current;
  {
    std::lock_guard lock(providerMutex());
    current = provider();
  }
  try {
    return current ? current() : false;
  } catch (...) {
    return false;
  }
}

void IdiomTools::setSplitScreenModeProvider(SplitScreenModeProvider value) {
  std::lock_guard lock(providerMutex());
  provider() = std::move(value);
}

}  // namespace iam
