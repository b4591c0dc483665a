// Only the umbrella header: what a host includes.
#include "iam/iam.h"

int main() {
  const auto response = iam::AdvertisementsResponseParser().parse(
      std::string_view(R"({"advertisements": [], "appConfig": {"minimumPopupImpressionTimeInterval": 30}})"),
      iam::OspreyServiceContentInfo::contentInfoCreatedNow(), std::nullopt);
  return response ? 0 : 1;
}
