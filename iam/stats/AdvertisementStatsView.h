#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/stats/ZTIAMAdvertisementStats.h"
#include "iam/stats/ZTIAMAppEventStats.h"
#include "iam/stats/ZTIAMStatsGetterHelper.h"

namespace iam {

// The statistics one walk over a list of advertisements reads: every record that exists fetched in
// one look at the store when the view is made (or taken over from the previous walk over the same
// list), instead of a look-up by id each time a rule asks. A missing record is made by a look-up
// when it is first asked for, exactly as the rules would have made it. The records are the
// store's own, so counts made meanwhile are seen. A record stays the one under its id until the
// store's records are reloaded or reset; `refresh()` then drops the records fetched before.
//
// Holds the list and the getter by reference. Not thread-safe: one per walk, on the walk's thread.
class AdvertisementStatsView {
 public:
  using Advertisements = std::vector<std::shared_ptr<AdvertisementType>>;

  // Records a view fetched, for the next view over the same advertisements. Used only when every
  // advertisement is the same object at the same place, and the store's records were not
  // replaced since; an advertisement's id is taken to stay as it was parsed.
  struct Kept {
    std::vector<std::shared_ptr<ZTIAMAdvertisementStats>> records;
    std::vector<const AdvertisementType*> advertisements;
    std::uint64_t generation = 0;
  };

  AdvertisementStatsView(ZTIAMStatsGetterHelper& statsGetter, const Advertisements& advertisements)
      : AdvertisementStatsView(statsGetter, advertisements, Kept()) {}
  AdvertisementStatsView(ZTIAMStatsGetterHelper& statsGetter, const Advertisements& advertisements, Kept kept);
  // The records fetched so far, for a view over the same list made later.
  Kept keep() &&;
  // Drops every record fetched when the store's records have been replaced since; a walk calls it
  // at each step.
  void refresh() {
    if (statsGetter_.recordsGeneration() != generation_) dropAll();
  }

  ZTIAMStatsGetterHelper& statsGetter() const { return statsGetter_; }
  const Advertisements& advertisements() const { return advertisements_; }

  // The record of the advertisement at `index` in the list (which must hold one there). Never none.
  const std::shared_ptr<ZTIAMAdvertisementStats>& advertisementStats(std::size_t index) {
    auto& record = advertisementStats_[index];
    if (!record) lookUp(index);
    return record;
  }
  // The record of `advertisement`: from the list when it is the one at `index`, else looked up
  // and held until the next such look-up.
  const std::shared_ptr<ZTIAMAdvertisementStats>& advertisementStats(const AdvertisementType& advertisement,
                                                                     std::size_t index);
  // The app event record of `eventKey`; the one of the key asked for last is kept.
  const std::shared_ptr<ZTIAMAppEventStats>& appEventStats(const std::string& eventKey);

 private:
  void lookUp(std::size_t index);
  void dropAll();

  ZTIAMStatsGetterHelper& statsGetter_;
  const Advertisements& advertisements_;
  std::uint64_t generation_;
  std::vector<std::shared_ptr<ZTIAMAdvertisementStats>> advertisementStats_;
  std::vector<const AdvertisementType*> keptAdvertisements_;  // empty unless taken over
  std::shared_ptr<ZTIAMAdvertisementStats> lookedUp_;  // of an advertisement not at the index asked
  std::string appEventKey_;
  std::shared_ptr<ZTIAMAppEventStats> appEventStats_;
};

}  // namespace iam
