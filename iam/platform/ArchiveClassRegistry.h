#pragma once

#include <memory>
#include <string_view>

#include "iam/platform/Archivable.h"

namespace iam {

// Class name to decoder, for archives read without demanding a class
// (`KeyedUnarchiver::unarchivedObjectFromData`, `ArchiveValue::decodeObject`,
// `ZTSettings::getUnarchivedObjectForKey`). Typed decoding (`decodeObjectOfClass<T>`) does not need
// it. Nothing registers itself: the library's classes are registered by
// `iam::registerArchivableClasses()` (iam/ArchivableClasses.h), which that header also installs as
// the class loader; other classes by `registerClass<T>()`. Thread-safe.
class ArchiveClassRegistry {
 public:
  using Factory = std::shared_ptr<Archivable> (*)(const KeyedUnarchiver&);
  using ClassLoader = void (*)();

  // Registering a name again replaces its decoder.
  static void registerClass(std::string_view name, Factory factory);
  template <class T>
  static void registerClass() {
    registerClass(T::kArchiveClassName,
                  [](const KeyedUnarchiver& c) -> std::shared_ptr<Archivable> { return T::initWithCoder(c); });
  }

  // The decoder of `name`. When none is registered and a class loader is installed, runs the
  // loader and looks again; null when the name is still unknown.
  static Factory factoryFor(std::string_view name);

  // The function that registers the classes a lookup may miss. It runs on every miss, from any
  // thread, so it must be idempotent, thread-safe and cheap once done. Returns true, so that a
  // variable can be initialised with it.
  static bool setClassLoader(ClassLoader loader);
};

}  // namespace iam
