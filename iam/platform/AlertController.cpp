#include "iam/platform/AlertController.h"

#include <algorithm>

namespace iam {

void AlertController::setPreferredAction(std::shared_ptr<AlertAction> action) {
  if (!action) {
    preferredAction_.reset();
    return;
  }
  if (std::find(actions_.begin(), actions_.end(), action) != actions_.end()) preferredAction_ = std::move(action);
}

}  // namespace iam
