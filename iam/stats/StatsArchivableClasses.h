#pragma once

namespace iam {

// Registers the archivable classes of this folder (statistics records) for untyped decoding. Idempotent and
// thread-safe. Hosts call `registerArchivableClasses()` (iam/ArchivableClasses.h) instead.
void registerStatsArchivableClasses();

}  // namespace iam
