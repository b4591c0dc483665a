#pragma once

namespace iam {

// Registers the archivable classes of this folder (answers and their records) for untyped decoding. Idempotent and
// thread-safe. Hosts call `registerArchivableClasses()` (iam/ArchivableClasses.h) instead.
void registerServiceArchivableClasses();

}  // namespace iam
