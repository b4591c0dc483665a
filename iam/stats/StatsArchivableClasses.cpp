#include "iam/stats/StatsArchivableClasses.h"

#include "iam/stats/ZTIAMAdvertisementEvent.h"
#include "iam/stats/ZTIAMAdvertisementStats.h"
#include "iam/stats/ZTIAMAdvertisementTriggerStats.h"
#include "iam/stats/ZTIAMAppEventStats.h"
#include "iam/platform/ArchiveClassRegistry.h"

namespace iam {

void registerStatsArchivableClasses() {
  ArchiveClassRegistry::registerClass<ZTIAMAdvertisementEvent>();
  ArchiveClassRegistry::registerClass<ZTIAMAdvertisementStats>();
  ArchiveClassRegistry::registerClass<ZTIAMAdvertisementTriggerStats>();
  ArchiveClassRegistry::registerClass<ZTIAMAppEventStats>();
}

}  // namespace iam
