#pragma once

// The library's archivable classes, registered for archives read without demanding a class
// (`ZTSettings::getUnarchivedObjectForKey`, `KeyedUnarchiver::unarchivedObjectFromData`,
// `ArchiveValue::decodeObject`).
//
// Nothing in the library registers itself while static objects are made: in a static library that
// registration is dropped with any object file the host links no symbol of. Instead:
//
// - A host that includes this header (iam/iam.h does) in a file it links has nothing to do. The
//   header installs `registerArchivableClasses` as the registry's class loader when that file's
//   static objects are made, and the first untyped lookup of an unknown class name registers every
//   class. Calling the folders' functions from here is also what links the record classes into the
//   host.
// - Code that decodes untyped before that, from its own static initialisers, or that never includes
//   this header, calls `registerArchivableClasses()` first.

#include "iam/model/ModelArchivableClasses.h"
#include "iam/net/NetArchivableClasses.h"
#include "iam/platform/ArchiveClassRegistry.h"
#include "iam/service/ServiceArchivableClasses.h"
#include "iam/stats/StatsArchivableClasses.h"

namespace iam {

// Registers every archivable class of the library. Idempotent and thread-safe; after the first
// call, a call costs one check.
inline void registerArchivableClasses() {
  static const bool registered = [] {
    registerNetArchivableClasses();
    registerModelArchivableClasses();
    registerServiceArchivableClasses();
    registerStatsArchivableClasses();
    return true;
  }();
  (void)registered;
}

inline const bool kArchivableClassLoaderInstalled = ArchiveClassRegistry::setClassLoader(&registerArchivableClasses);

}  // namespace iam
