#pragma once

namespace iam {

// The handle of a running service request. Thread-safe; it may outlive the request and the
// endpoint that made it.
class RequestTicketType {
 public:
  virtual ~RequestTicketType() = default;

  // True once the completion has been called (on the main loop), or once the request was
  // cancelled. A request without completion finishes when its result would have been delivered.
  virtual bool isFinished() const = 0;
  // Stops the request; its completion will not be called. Does nothing once finished.
  virtual void cancel() = 0;
};

}  // namespace iam
