// A host that only links the installed package and uses its umbrella header. Every archivable
// class of the library must decode without the host naming its class: a registration that a static
// link dropped shows up here as a missing class.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "iam/iam.h"

namespace {

std::vector<std::shared_ptr<iam::Archivable>> oneOfEach() {
  using namespace iam;
  auto contentInfo = OspreyServiceContentInfo::contentInfoCreatedNow();
  auto ad = std::make_shared<Advertisement>("ad");
  auto trigger = std::make_shared<AdvertisementTrigger>("trigger", "launch");
  auto target = std::make_shared<AdvertisementTarget>("target", "space");
  auto rankedApp = std::make_shared<ZTIAMQualityNetworkRankedApp>("ranked");
  auto appConfig = std::make_shared<AppConfig>(30, std::map<std::string, std::string>{});
  auto triggerStats = std::make_shared<ZTIAMAdvertisementTriggerStats>();
  triggerStats->incrementCount();
  auto appEventStats = std::make_shared<ZTIAMAppEventStats>();
  appEventStats->setEventKey("launch");
  auto stats = std::make_shared<ZTIAMAdvertisementStats>();
  stats->setAdvertisementId("ad");
  return {contentInfo,
          ad,
          trigger,
          target,
          std::make_shared<AdvertisedApp>("app"),
          std::make_shared<StoreAppInfo>("store"),
          std::make_shared<ZTIAMResource>("title", "Hello"),
          std::make_shared<AdvertisementsRequestResponse>(std::vector<std::shared_ptr<AdvertisementType>>{ad},
                                                          contentInfo, appConfig),
          appConfig,
          std::make_shared<NativeQualityNetworkResponse>(
              std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>>{rankedApp}, contentInfo),
          rankedApp,
          ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeClick, ad, trigger, target),
          stats,
          triggerStats,
          appEventStats};
}

}  // namespace

int main() {
  iam::PreferencesStore::setStandard(std::make_shared<iam::InMemoryPreferencesStore>());
  iam::ZTSettings::incrementRunCount();
  auto response = iam::AdvertisementsResponseParser().parse(
      std::string_view(R"({"advertisements": [], "appConfig": {"minimumPopupImpressionTimeInterval": 30}})"),
      iam::OspreyServiceContentInfo::contentInfoCreatedNow(), std::nullopt);
  if (!response || iam::ZTSettings::runCount() != 1) return 1;

  int failures = 0;
  const auto records = oneOfEach();
  for (const auto& record : records) {
    const std::string name(record->archiveClassName());
    const auto bytes = iam::KeyedArchiver::archivedDataWithRootObject(*record);
    const auto decoded = iam::KeyedUnarchiver::unarchivedObjectFromData(bytes);
    iam::ZTSettings::saveArchivableObject(*record, name);
    const auto stored = iam::ZTSettings::getUnarchivedObjectForKey(name);
    if (!decoded || decoded->archiveClassName() != name || !stored || stored->archiveClassName() != name) {
      std::fprintf(stderr, "%s does not decode untyped\n", name.c_str());
      ++failures;
    }
  }
  std::printf("%zu archivable classes, %d not decoded untyped\n", records.size(), failures);
  return failures == 0 ? 0 : 2;
}
