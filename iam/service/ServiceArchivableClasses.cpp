#include "iam/service/ServiceArchivableClasses.h"

#include "iam/service/AdvertisementsRequestResponse.h"
#include "iam/service/AppConfig.h"
#include "iam/service/NativeQualityNetworkResponse.h"
#include "iam/service/ZTIAMQualityNetworkRankedApp.h"
#include "iam/platform/ArchiveClassRegistry.h"

namespace iam {

void registerServiceArchivableClasses() {
  ArchiveClassRegistry::registerClass<AdvertisementsRequestResponse>();
  ArchiveClassRegistry::registerClass<AppConfig>();
  ArchiveClassRegistry::registerClass<NativeQualityNetworkResponse>();
  ArchiveClassRegistry::registerClass<ZTIAMQualityNetworkRankedApp>();
}

}  // namespace iam
