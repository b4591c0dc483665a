#pragma once

namespace iam {

// One of the host's views, as far as the library needs it: an opaque handle that display requests
// carry back to the host. A host derives its own view wrapper from it.
class View {
 public:
  virtual ~View() = default;
};

}  // namespace iam
