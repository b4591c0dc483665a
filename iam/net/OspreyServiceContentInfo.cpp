#include "iam/net/OspreyServiceContentInfo.h"

#include "iam/platform/Clock.h"

namespace iam {

OspreyServiceContentInfo::OspreyServiceContentInfo(Date localCreatedAt, bool isLocalExpired)
    : localCreatedAt_(localCreatedAt), isLocalExpired_(isLocalExpired) {}

std::shared_ptr<OspreyServiceContentInfo> OspreyServiceContentInfo::contentInfoCreatedNow() {
  return std::make_shared<OspreyServiceContentInfo>(Clock::currentDate(), false);
}

void OspreyServiceContentInfo::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeDate(localCreatedAt_, "localCreatedAt");
  coder.encodeBool(isLocalExpired_, "isLocalExpired");
}

std::shared_ptr<OspreyServiceContentInfo> OspreyServiceContentInfo::initWithCoder(const KeyedUnarchiver& coder) {
  auto created = coder.decodeDateForKey("localCreatedAt");
  if (!created) return nullptr;
  return std::make_shared<OspreyServiceContentInfo>(*created, coder.decodeBoolForKey("isLocalExpired"));
}

}  // namespace iam
