#pragma once

#include <memory>
#include <string_view>

#include "iam/platform/Date.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"

namespace iam {

// What the service-call layer knows about a received answer: when it arrived on this device and
// whether the host marked it stale. Immutable once made; shared between threads.
class OspreyServiceContentInfo final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "OspreyServiceContentInfo";

  OspreyServiceContentInfo(Date localCreatedAt, bool isLocalExpired);
  // Content info of an answer that arrived now (process clock), not expired.
  static std::shared_ptr<OspreyServiceContentInfo> contentInfoCreatedNow();

  Date localCreatedAt() const { return localCreatedAt_; }
  bool isLocalExpired() const { return isLocalExpired_; }

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None when "localCreatedAt" is missing or not a date.
  static std::shared_ptr<OspreyServiceContentInfo> initWithCoder(const KeyedUnarchiver& coder);

 private:
  const Date localCreatedAt_;
  const bool isLocalExpired_;
};

}  // namespace iam
