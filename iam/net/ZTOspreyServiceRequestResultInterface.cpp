#include "iam/net/ZTOspreyServiceRequestResultInterface.h"

namespace iam {

OspreyServiceRequestResult::OspreyServiceRequestResult(bool failed, std::optional<std::string> error, std::any data,
                                                       bool contentIsNotModified,
                                                       std::shared_ptr<OspreyServiceContentInfo> contentInfo)
    : failed_(failed),
      error_(std::move(error)),
      data_(std::move(data)),
      contentIsNotModified_(contentIsNotModified),
      contentInfo_(std::move(contentInfo)) {}

std::shared_ptr<OspreyServiceRequestResult> OspreyServiceRequestResult::failure(std::string error) {
  return std::make_shared<OspreyServiceRequestResult>(true, std::move(error), std::any(), false, nullptr);
}

std::shared_ptr<OspreyServiceRequestResult> OspreyServiceRequestResult::notModified(
    std::shared_ptr<OspreyServiceContentInfo> contentInfo) {
  return std::make_shared<OspreyServiceRequestResult>(false, std::nullopt, std::any(), true, std::move(contentInfo));
}

std::shared_ptr<OspreyServiceRequestResult> OspreyServiceRequestResult::answer(
    std::any data, std::shared_ptr<OspreyServiceContentInfo> contentInfo, std::optional<std::string> error) {
  return std::make_shared<OspreyServiceRequestResult>(false, std::move(error), std::move(data), false,
                                                      std::move(contentInfo));
}

}  // namespace iam
