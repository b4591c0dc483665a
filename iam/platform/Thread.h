#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace iam {

enum class ThreadPriority {
  Normal,
  // Below the host's own threads, so that waking library work does not take the processor from
  // the thread that handed it over.
  Background,
};

// A started thread. Move-only; the owner joins it (destroying a joinable handle joins, except on
// the thread itself, which is detached instead).
class Thread {
 public:
  Thread() = default;
  explicit Thread(std::thread thread) : thread_(std::move(thread)) {}
  Thread(Thread&&) noexcept = default;
  Thread& operator=(Thread&& other) noexcept;
  ~Thread();

  bool joinable() const { return thread_.joinable(); }
  bool isCurrent() const { return thread_.get_id() == std::this_thread::get_id(); }
  void join();

 private:
  std::thread thread_;
};

// Starts every thread the library runs (LevelDB's `Env::StartThread`): a host replaces it to
// register threads with its runtime (a JVM attach, a profiler name, an affinity). Install it
// before the library starts its first thread; threads already running keep what started them.
// Thread-safe.
class ThreadService {
 public:
  virtual ~ThreadService() = default;
  // Runs `body` on a new thread named `name` (at most 15 characters are kept) at `priority`.
  // Throws std::system_error when no thread can be started.
  virtual Thread start(const std::string& name, ThreadPriority priority, std::function<void()> body) = 0;

  static std::shared_ptr<ThreadService> current();
  // None restores the default service.
  static void setCurrent(std::shared_ptr<ThreadService> service);

  // Names the calling thread and sets its priority; what the default service does first on every
  // thread it starts, for services that wrap it.
  static void applyToCurrentThread(const std::string& name, ThreadPriority priority);
};

}  // namespace iam
