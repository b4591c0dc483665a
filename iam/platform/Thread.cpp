#include "iam/platform/Thread.h"

#include <mutex>

#if defined(__linux__)
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace iam {
namespace {

class DefaultThreadService final : public ThreadService {
 public:
  Thread start(const std::string& name, ThreadPriority priority, std::function<void()> body) override {
    return Thread(std::thread([name, priority, body = std::move(body)] {
      applyToCurrentThread(name, priority);
      body();
    }));
  }
};

struct Installed {
  std::mutex mutex;
  std::shared_ptr<ThreadService> service = std::make_shared<DefaultThreadService>();  // guarded by mutex
};

Installed& installed() {
  static Installed* const state = new Installed();  // never destroyed: threads start during exit
  return *state;
}

}  // namespace

Thread& Thread::operator=(Thread&& other) noexcept {
  if (this != &other) {
    if (thread_.joinable()) join();
    thread_ = std::move(other.thread_);
  }
  return *this;
}

Thread::~Thread() {
  if (thread_.joinable()) join();
}

void Thread::join() {
  if (!thread_.joinable()) return;
  if (isCurrent()) {
    thread_.detach();  // a thread cannot wait for itself
  } else {
    thread_.join();
  }
}

std::shared_ptr<ThreadService> ThreadService::current() {
  auto& state = installed();
  std::lock_guard lock(state.mutex);
  return state.service;
}

void ThreadService::setCurrent(std::shared_ptr<ThreadService> service) {
  auto next = service ? std::move(service) : std::make_shared<DefaultThreadService>();
  auto& state = installed();
  std::lock_guard lock(state.mutex);
  std::swap(state.service, next);
}

void ThreadService::applyToCurrentThread(const std::string& name, ThreadPriority priority) {
#if defined(__linux__)
  // Linux keeps at most 15 characters and refuses longer names outright.
  (void)pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
  if (priority == ThreadPriority::Background) {
    // The nice value is per thread on Linux.
    constexpr int kBackgroundNice = 10;
    (void)setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kBackgroundNice);
  }
#else
  (void)name;
  (void)priority;
#endif
}

}  // namespace iam
