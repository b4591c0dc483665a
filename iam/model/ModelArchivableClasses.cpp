#include "iam/model/ModelArchivableClasses.h"

#include "iam/model/AdvertisedApp.h"
#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTarget.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/model/StoreAppInfo.h"
#include "iam/model/ZTIAMResource.h"
#include "iam/platform/ArchiveClassRegistry.h"

namespace iam {

void registerModelArchivableClasses() {
  ArchiveClassRegistry::registerClass<AdvertisedApp>();
  ArchiveClassRegistry::registerClass<Advertisement>();
  ArchiveClassRegistry::registerClass<AdvertisementTarget>();
  ArchiveClassRegistry::registerClass<AdvertisementTrigger>();
  ArchiveClassRegistry::registerClass<StoreAppInfo>();
  ArchiveClassRegistry::registerClass<ZTIAMResource>();
}

}  // namespace iam
