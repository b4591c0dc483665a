#pragma once

// A loopback HTTP server whose every answer a test writes itself, for driving the transport into
// each of its paths. Header-only so that both net test programs can use it.

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace iam::testing {

class TestHttpServer {
 public:
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  // `workers` 1 keeps all of the server's own work on one thread: the prebuilt server library is
  // not instrumented, so ThreadSanitizer cannot see how its workers hand data to each other.
  explicit TestHttpServer(Handler handler, std::size_t workers = 8) : handler_(std::move(handler)) {
    server_.new_task_queue = [workers] { return new httplib::ThreadPool(workers); };
    server_.set_keep_alive_max_count(1);  // a held connection would block a single worker
    server_.Post(".*", [this](const httplib::Request& request, httplib::Response& response) {
      {
        std::lock_guard lock(mutex_);
        ++receivedCount_;
      }
      handler_(request, response);
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    listener_ = std::thread([this] { server_.listen_after_bind(); });
    // A stop that comes before the server runs would be lost and leave the listener in accept().
    for (int i = 0; i < 5000 && !server_.is_running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ~TestHttpServer() {
    release();
    server_.stop();
    listener_.join();
  }
  TestHttpServer(const TestHttpServer&) = delete;
  TestHttpServer& operator=(const TestHttpServer&) = delete;

  std::string baseUrl() const { return "http://127.0.0.1:" + std::to_string(port_); }

  // For handlers: holds the answer until `release` or until `seconds` pass.
  void holdUntilReleased(double seconds) {
    std::unique_lock lock(mutex_);
    released_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return isReleased_; });
  }
  void release() {
    std::lock_guard lock(mutex_);
    isReleased_ = true;
    released_.notify_all();
  }
  std::size_t receivedCount() const {
    std::lock_guard lock(mutex_);
    return receivedCount_;
  }

 private:
  Handler handler_;
  httplib::Server server_;
  int port_ = -1;
  std::thread listener_;
  mutable std::mutex mutex_;
  std::condition_variable released_;
  bool isReleased_ = false;                 // guarded by mutex_
  std::size_t receivedCount_ = 0;           // guarded by mutex_
};

}  // namespace iam::testing
