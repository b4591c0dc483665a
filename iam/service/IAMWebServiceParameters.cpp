#include "iam/service/IAMWebServiceParameters.h"

#include <nlohmann/json.hpp>

namespace iam {

nlohmann::json IAMWebServiceParameters::getContentAsDictionary() const {
  nlohmann::json content = nlohmann::json::object();
  content["boughtAdFree"] = hasBoughtAdFreeUpgrade_;
  return content;
}

}  // namespace iam
