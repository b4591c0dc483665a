#include "iam/manager/InAppMarketingPreferencesStorage.h"

#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/LogBridge.h"

namespace iam {

std::optional<std::string> InAppMarketingPreferencesStorage::lastVersion() const {
  auto data = store()->dataForKey(kLastVersionKey);
  if (!data) return std::nullopt;
  std::optional<std::string> version;
  KeyedUnarchiver::withArchive(*data, [&](const ArchiveValue& root) {
    if (auto text = root.stringValue()) version = std::string(*text);
  });
  return version;
}

void InAppMarketingPreferencesStorage::setLastVersion(std::optional<std::string> value) {
  auto preferences = store();
  if (!value) {
    preferences->removeObjectForKey(kLastVersionKey);
    return;
  }
  KeyedArchiver archiver;
  archiver.writeString(*value);
  if (!preferences->setData(archiver.takeData(), kLastVersionKey)) {
    LogBridge::warning("IAM: Could not save the last app version.", "InAppMarketing/source/UI/UserDefaults+InAppMarketing",
                       __LINE__, "setLastVersion");
  }
}

}  // namespace iam
