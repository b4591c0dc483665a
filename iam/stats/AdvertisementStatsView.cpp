#include "iam/stats/AdvertisementStatsView.h"

namespace iam {

namespace {

bool sameAdvertisements(const std::vector<const AdvertisementType*>& kept,
                        const AdvertisementStatsView::Advertisements& advertisements) {
  if (kept.size() != advertisements.size()) return false;
  for (std::size_t i = 0; i < kept.size(); ++i) {
    if (kept[i] != advertisements[i].get()) return false;
  }
  return true;
}

}  // namespace

// The generation is read before the records: a reset between the two makes the next refresh
// look again rather than trust records of the old maps.
AdvertisementStatsView::AdvertisementStatsView(ZTIAMStatsGetterHelper& statsGetter,
                                               const Advertisements& advertisements, Kept kept)
    : statsGetter_(statsGetter), advertisements_(advertisements), generation_(statsGetter.recordsGeneration()) {
  if (kept.generation == generation_ && kept.records.size() == advertisements.size() &&
      sameAdvertisements(kept.advertisements, advertisements)) {
    advertisementStats_ = std::move(kept.records);
    keptAdvertisements_ = std::move(kept.advertisements);
  } else {
    advertisementStats_ = statsGetter.findAdvertisementStats(advertisements);
    advertisementStats_.resize(advertisements.size());
  }
}

AdvertisementStatsView::Kept AdvertisementStatsView::keep() && {
  if (keptAdvertisements_.size() != advertisements_.size()) {
    keptAdvertisements_.clear();
    keptAdvertisements_.reserve(advertisements_.size());
    for (const auto& advertisement : advertisements_) keptAdvertisements_.push_back(advertisement.get());
  }
  return {std::move(advertisementStats_), std::move(keptAdvertisements_), generation_};
}

void AdvertisementStatsView::dropAll() {
  generation_ = statsGetter_.recordsGeneration();
  for (auto& record : advertisementStats_) record.reset();
  lookedUp_.reset();
  appEventStats_.reset();
}

void AdvertisementStatsView::lookUp(std::size_t index) {
  advertisementStats_[index] =
      statsGetter_.getAdvertisementStatsByAdvertisementId(advertisements_[index]->advertisementId());
}

const std::shared_ptr<ZTIAMAdvertisementStats>& AdvertisementStatsView::advertisementStats(
    const AdvertisementType& advertisement, std::size_t index) {
  if (index < advertisements_.size() && advertisements_[index].get() == &advertisement)
    return advertisementStats(index);
  lookedUp_ = statsGetter_.getAdvertisementStatsByAdvertisementId(advertisement.advertisementId());
  return lookedUp_;
}

const std::shared_ptr<ZTIAMAppEventStats>& AdvertisementStatsView::appEventStats(const std::string& eventKey) {
  if (!appEventStats_ || appEventKey_ != eventKey) {
    appEventStats_ = statsGetter_.getAppEventStatsByEventKey(eventKey);
    appEventKey_ = eventKey;
  }
  return appEventStats_;
}

}  // namespace iam
