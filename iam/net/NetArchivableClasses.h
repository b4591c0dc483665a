#pragma once

namespace iam {

// Registers the archivable classes of this folder (content info) for untyped decoding. Idempotent and
// thread-safe. Hosts call `registerArchivableClasses()` (iam/ArchivableClasses.h) instead.
void registerNetArchivableClasses();

}  // namespace iam
