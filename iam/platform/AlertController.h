#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "iam/platform/ViewController.h"

namespace iam {

enum UIAlertActionStyle : std::int64_t {
  UIAlertActionStyleDefault = 0,
  UIAlertActionStyleCancel = 1,
  UIAlertActionStyleDestructive = 2,
};

// One button of an alert. Immutable; the handler runs on the main thread when the user picks it.
class AlertAction {
 public:
  using Handler = std::function<void(const AlertAction&)>;

  AlertAction(std::string title, UIAlertActionStyle style, Handler handler)
      : title_(std::move(title)), style_(style), handler_(std::move(handler)) {}

  const std::string& title() const { return title_; }
  UIAlertActionStyle style() const { return style_; }
  // What the host's alert calls when the user picks this action.
  void perform() const {
    if (handler_) handler_(*this);
  }

 private:
  const std::string title_;
  const UIAlertActionStyle style_;
  const Handler handler_;
};

// A modal question with a title, a message and buttons. Screens that are alerts are never covered
// by the library's own popups. A host draws it with its toolkit when presented; one without a
// toolkit never presents it. Main thread only.
class AlertController : public ViewController {
 public:
  AlertController(std::optional<std::string> title, std::optional<std::string> message)
      : title_(std::move(title)), message_(std::move(message)) {}

  const std::optional<std::string>& title() const { return title_; }
  const std::optional<std::string>& message() const { return message_; }
  void addAction(std::shared_ptr<AlertAction> action) {
    if (action) actions_.push_back(std::move(action));
  }
  const std::vector<std::shared_ptr<AlertAction>>& actions() const { return actions_; }
  // Must be one of `actions()`; others are ignored.
  void setPreferredAction(std::shared_ptr<AlertAction> action);
  const std::shared_ptr<AlertAction>& preferredAction() const { return preferredAction_; }

 private:
  const std::optional<std::string> title_;
  const std::optional<std::string> message_;
  std::vector<std::shared_ptr<AlertAction>> actions_;
  std::shared_ptr<AlertAction> preferredAction_;
};

}  // namespace iam
