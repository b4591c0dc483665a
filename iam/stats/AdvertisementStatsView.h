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
// one look at the store when the view is made, instead of a look-up by id each time a rule asks.
// A missing record is made by a look-up when it is first asked for, exactly as the rules would
// have made it. The records are the store's own, so counts made meanwhile are seen; when the
// store's records are reloaded or reset, the view looks them up again.
//
// Holds the list and the getter by reference. Not thread-safe: one per walk, on the walk's thread.
class AdvertisementStatsView {
 public:
  using Advertisements = std::vector<std::shared_ptr<AdvertisementType>>;

  AdvertisementStatsView(ZTIAMStatsGetterHelper& statsGetter, const Advertisements& advertisements);

  ZTIAMStatsGetterHelper& statsGetter() const { return statsGetter_; }
  const Advertisements& advertisements() const { return advertisements_; }

  // The record of the advertisement at `index` in the list (which must hold one there). Never none.
  const std::shared_ptr<ZTIAMAdvertisementStats>& advertisementStats(std::size_t index);
  // The record of `advertisement`: from the list when it is the one at `index`, else looked up.
  std::shared_ptr<ZTIAMAdvertisementStats> advertisementStats(const AdvertisementType& advertisement,
                                                              std::size_t index);
  // The app event record of `eventKey`; the one of the key asked for last is kept.
  std::shared_ptr<ZTIAMAppEventStats> appEventStats(const std::string& eventKey);

 private:
  // Forgets every record when the store's have been replaced since they were fetched.
  void dropIfReplaced();

  ZTIAMStatsGetterHelper& statsGetter_;
  const Advertisements& advertisements_;
  std::uint64_t generation_;
  std::vector<std::shared_ptr<ZTIAMAdvertisementStats>> advertisementStats_;
  std::string appEventKey_;
  std::shared_ptr<ZTIAMAppEventStats> appEventStats_;
};

}  // namespace iam
