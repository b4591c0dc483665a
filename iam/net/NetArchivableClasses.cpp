#include "iam/net/NetArchivableClasses.h"

#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/platform/ArchiveClassRegistry.h"

namespace iam {

void registerNetArchivableClasses() {
  ArchiveClassRegistry::registerClass<OspreyServiceContentInfo>();
}

}  // namespace iam
