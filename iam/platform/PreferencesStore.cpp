#include "iam/platform/PreferencesStore.h"

#include <mutex>

#include "iam/platform/InMemoryPreferencesStore.h"

namespace iam {
namespace {

std::mutex& standardMutex() {
  static std::mutex m;
  return m;
}

std::shared_ptr<PreferencesStore>& standardStore() {
  static std::shared_ptr<PreferencesStore> store;  // guarded by standardMutex()
  return store;
}

}  // namespace

std::shared_ptr<PreferencesStore> PreferencesStore::standard() {
  std::lock_guard lock(standardMutex());
  auto& store = standardStore();
  if (!store) store = std::make_shared<InMemoryPreferencesStore>();
  return store;
}

void PreferencesStore::setStandard(std::shared_ptr<PreferencesStore> store) {
  std::shared_ptr<PreferencesStore> previous;  // released outside the lock
  std::lock_guard lock(standardMutex());
  previous = std::move(standardStore());
  standardStore() = std::move(store);
}

}  // namespace iam
