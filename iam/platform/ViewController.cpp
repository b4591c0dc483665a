#include "iam/platform/ViewController.h"

namespace iam {

void ViewController::presentViewController(std::shared_ptr<ViewController> controller, bool /*animated*/,
                                           std::function<void()> completion) {
  if (!controller || controller.get() == this || presented_ || controller->presentingViewController()) return;
  controller->presenting_ = weak_from_this();
  presented_ = std::move(controller);
  if (completion) completion();
}

void ViewController::dismissViewControllerAnimated(bool /*animated*/, std::function<void()> completion) {
  if (presented_) {
    // Whatever the presented one itself presents goes with it.
    presented_->presenting_.reset();
    presented_.reset();
  } else if (auto presenting = presenting_.lock()) {
    presenting->presented_.reset();
    presenting_.reset();
  }
  if (completion) completion();
}

std::shared_ptr<ViewController> ViewController::topPresentedViewController() {
  std::shared_ptr<ViewController> top = shared_from_this();
  while (auto next = top->presented_) top = std::move(next);
  return top;
}

}  // namespace iam
