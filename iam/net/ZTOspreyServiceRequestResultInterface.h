#pragma once

#include <any>
#include <memory>
#include <optional>
#include <string>

#include "iam/net/OspreyServiceContentInfo.h"

namespace iam {

// What a request's completion receives. Immutable, so it may be kept and read from any thread.
class ZTOspreyServiceRequestResultInterface {
 public:
  virtual ~ZTOspreyServiceRequestResultInterface() = default;

  // The request did not produce an answer: no connection, time-out, an HTTP error status, or an
  // answer that is not a JSON object of acceptable size. `error` says which.
  virtual bool failed() const = 0;
  // What went wrong, in plain words; none when nothing did.
  virtual const std::optional<std::string>& error() const = 0;
  // What the parse handler returned; empty when it returned nothing or was not called.
  virtual const std::any& data() const = 0;
  // The service answered that the content is unchanged since the request's entity tag.
  virtual bool contentIsNotModified() const = 0;
  // When the answer (or the not-modified answer) arrived; none for a failure.
  virtual const std::shared_ptr<OspreyServiceContentInfo>& contentInfo() const = 0;

  // `data` as the record a parse handler returned as `std::shared_ptr<T>`; none otherwise.
  template <class T>
  std::shared_ptr<T> dataAs() const {
    const auto* held = std::any_cast<std::shared_ptr<T>>(&data());
    return held ? *held : nullptr;
  }
};

// The service-call layer's result; also usable by tests that feed results to callers.
class OspreyServiceRequestResult final : public ZTOspreyServiceRequestResultInterface {
 public:
  static std::shared_ptr<OspreyServiceRequestResult> failure(std::string error);
  static std::shared_ptr<OspreyServiceRequestResult> notModified(std::shared_ptr<OspreyServiceContentInfo> contentInfo);
  // `error` explains a missing `data` without making the result a failure.
  static std::shared_ptr<OspreyServiceRequestResult> answer(std::any data,
                                                            std::shared_ptr<OspreyServiceContentInfo> contentInfo,
                                                            std::optional<std::string> error = std::nullopt);

  OspreyServiceRequestResult(bool failed, std::optional<std::string> error, std::any data, bool contentIsNotModified,
                             std::shared_ptr<OspreyServiceContentInfo> contentInfo);

  bool failed() const override { return failed_; }
  const std::optional<std::string>& error() const override { return error_; }
  const std::any& data() const override { return data_; }
  bool contentIsNotModified() const override { return contentIsNotModified_; }
  const std::shared_ptr<OspreyServiceContentInfo>& contentInfo() const override { return contentInfo_; }

 private:
  const bool failed_;
  const std::optional<std::string> error_;
  const std::any data_;
  const bool contentIsNotModified_;
  const std::shared_ptr<OspreyServiceContentInfo> contentInfo_;
};

}  // namespace iam
