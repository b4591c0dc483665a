#pragma once

#include <functional>
#include <memory>

namespace iam {

// One of the host's screens, as far as the library needs it: what it presents on top of itself.
// A host with a UI toolkit derives a wrapper around its own screen and overrides the two
// operations to show and hide for real, calling the base operations to keep the chain. Made with
// std::make_shared. Main thread only.
class ViewController : public std::enable_shared_from_this<ViewController> {
 public:
  ViewController() = default;
  virtual ~ViewController() = default;
  ViewController(const ViewController&) = delete;
  ViewController& operator=(const ViewController&) = delete;

  std::shared_ptr<ViewController> presentedViewController() const { return presented_; }
  std::shared_ptr<ViewController> presentingViewController() const { return presenting_.lock(); }

  // Presents `controller` over this one; refused (nothing happens) while this one already
  // presents another or `controller` is presented elsewhere. The completion runs once shown.
  virtual void presentViewController(std::shared_ptr<ViewController> controller, bool animated,
                                     std::function<void()> completion);
  // Dismisses what this one presents (or, if it presents nothing, this one itself).
  virtual void dismissViewControllerAnimated(bool animated, std::function<void()> completion);

  // The end of the chain of presented controllers that starts here (this one if it presents none).
  std::shared_ptr<ViewController> topPresentedViewController();

 private:
  std::shared_ptr<ViewController> presented_;
  std::weak_ptr<ViewController> presenting_;
};

// The window that holds the app's root screen. Main thread only.
class Window {
 public:
  explicit Window(std::shared_ptr<ViewController> rootViewController = nullptr)
      : rootViewController_(std::move(rootViewController)) {}

  const std::shared_ptr<ViewController>& rootViewController() const { return rootViewController_; }
  void setRootViewController(std::shared_ptr<ViewController> value) { rootViewController_ = std::move(value); }

 private:
  std::shared_ptr<ViewController> rootViewController_;
};

}  // namespace iam
