// A host that only links the installed package and uses its umbrella header.
#include "iam/iam.h"
#include "iam/platform/InMemoryPreferencesStore.h"

int main() {
  iam::PreferencesStore::setStandard(std::make_shared<iam::InMemoryPreferencesStore>());
  iam::ZTSettings::incrementRunCount();
  auto response = iam::AdvertisementsResponseParser().parse(
      std::string_view(R"({"advertisements": [], "appConfig": {"minimumPopupImpressionTimeInterval": 30}})"),
      iam::OspreyServiceContentInfo::contentInfoCreatedNow(), std::nullopt);
  if (!response) return 2;
  return iam::ZTSettings::runCount() == 1 ? 0 : 1;
}
