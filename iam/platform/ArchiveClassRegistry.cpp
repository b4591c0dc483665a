#include "iam/platform/ArchiveClassRegistry.h"

#include <atomic>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>

namespace iam {
namespace {

struct Registry {
  std::shared_mutex mutex;
  std::map<std::string, ArchiveClassRegistry::Factory, std::less<>> factories;  // guarded by mutex
};

Registry& registry() {
  static Registry r;
  return r;
}

// Constant-initialised, so a loader installed during a host's static initialisation is kept.
constinit std::atomic<ArchiveClassRegistry::ClassLoader> classLoader{nullptr};

ArchiveClassRegistry::Factory lookUp(std::string_view name) {
  auto& r = registry();
  std::shared_lock lock(r.mutex);
  auto it = r.factories.find(name);
  return it == r.factories.end() ? nullptr : it->second;
}

}  // namespace

void ArchiveClassRegistry::registerClass(std::string_view name, Factory factory) {
  auto& r = registry();
  std::unique_lock lock(r.mutex);
  r.factories.insert_or_assign(std::string(name), factory);
}

ArchiveClassRegistry::Factory ArchiveClassRegistry::factoryFor(std::string_view name) {
  if (Factory f = lookUp(name)) return f;
  ClassLoader loader = classLoader.load(std::memory_order_acquire);
  if (loader == nullptr) return nullptr;
  loader();
  return lookUp(name);
}

bool ArchiveClassRegistry::setClassLoader(ClassLoader loader) {
  classLoader.store(loader, std::memory_order_release);
  return true;
}

}  // namespace iam
