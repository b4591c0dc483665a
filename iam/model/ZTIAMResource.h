#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"

namespace iam {

// One named text of an advertisement, an advertised app or a ranked app: a title, an image URL, a
// colour, an identifier. A value may be absent (JSON null). Immutable once made; shared freely.
class ZTIAMResource final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "ZTIAMResource";

  ZTIAMResource(std::string key, std::optional<std::string> value)
      : key_(std::move(key)), value_(std::move(value)) {}
  ZTIAMResource() = delete;

  const std::string& key() const { return key_; }
  const std::optional<std::string>& value() const { return value_; }

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None without a string "_key".
  static std::shared_ptr<ZTIAMResource> initWithCoder(const KeyedUnarchiver& coder);

 private:
  const std::string key_;
  const std::optional<std::string> value_;
};

using ZTIAMResourceType = ZTIAMResource;

// Resources by key. The transparent comparator lets look-ups take a string_view.
using ZTIAMResourceMap = std::map<std::string, std::shared_ptr<ZTIAMResource>, std::less<>>;

}  // namespace iam
