#include "iam/stats/AdvertisementStatsView.h"

namespace iam {

// The generation is read before the records: a reset between the two makes the next refresh
// look again rather than trust records of the old maps.
AdvertisementStatsView::AdvertisementStatsView(ZTIAMStatsGetterHelper& statsGetter,
                                               const Advertisements& advertisements, Kept kept)
    : statsGetter_(statsGetter), advertisements_(advertisements), generation_(statsGetter.recordsGeneration()) {
  if (kept.generation == generation_ && kept.records.size() == advertisements.size() && !advertisements.empty()) {
    advertisementStats_ = std::move(kept.records);
  } else {
    advertisementStats_ = statsGetter.findAdvertisementStats(advertisements);
    advertisementStats_.resize(advertisements.size());
  }
}

AdvertisementStatsView::Kept AdvertisementStatsView::keep() && {
  return {std::move(advertisementStats_), generation_};
}

void AdvertisementStatsView::refresh() {
  const std::uint64_t now = statsGetter_.recordsGeneration();
  if (now == generation_) return;
  generation_ = now;
  for (auto& record : advertisementStats_) record.reset();
  appEventStats_.reset();
}

const std::shared_ptr<ZTIAMAdvertisementStats>& AdvertisementStatsView::advertisementStats(std::size_t index) {
  auto& record = advertisementStats_[index];
  if (!record) record = statsGetter_.getAdvertisementStatsByAdvertisementId(advertisements_[index]->advertisementId());
  return record;
}

std::shared_ptr<ZTIAMAdvertisementStats> AdvertisementStatsView::advertisementStats(
    const AdvertisementType& advertisement, std::size_t index) {
  if (index < advertisements_.size() && advertisements_[index].get() == &advertisement)
    return advertisementStats(index);
  return statsGetter_.getAdvertisementStatsByAdvertisementId(advertisement.advertisementId());
}

std::shared_ptr<ZTIAMAppEventStats> AdvertisementStatsView::appEventStats(const std::string& eventKey) {
  if (!appEventStats_ || appEventKey_ != eventKey) {
    appEventStats_ = statsGetter_.getAppEventStatsByEventKey(eventKey);
    appEventKey_ = eventKey;
  }
  return appEventStats_;
}

}  // namespace iam
