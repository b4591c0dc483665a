#include "tools/refservice/ReferenceMarketingService.h"

#include <httplib.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

#include "iam/net/OspreyWebServiceEncryptionDetails.h"
#include "iam/platform/Thread.h"
#include "iam/service/IAMWebService.h"

namespace iam {

namespace {

enum class Fault { None, Status, Garbage, Array, Oversized, Refuse, Truncate, NotModified, WrongEntityTag };

constexpr std::size_t kFaultOversizedBytes = 50 * 1024 * 1024;
constexpr double kFaultStallSeconds = 24 * 3600;

constexpr ReferenceMarketingService::FaultMode kFaultModes[] = {
    {"refuse", "the port is closed: every connection is refused"},
    {"server-error", "every request fails with HTTP status 500"},
    {"not-modified", "304 without an entity tag, whether the app holds an answer or not"},
    {"wrong-etag", "304 naming an entity tag that the app never held"},
    {"truncate", "announces the answer's length, sends half of it and closes the connection"},
    {"not-json", "200 with a body that is not JSON"},
    {"array", "200 with a JSON array instead of an object"},
    {"oversized", "200 with a JSON object of 50 MiB"},
    {"stall", "holds every request unanswered until the service stops"},
};

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// If-None-Match holds a comma-separated list of tags, any of them weak, or "*".
bool ifNoneMatchMatches(std::string_view header, std::string_view tag) {
  const auto opaque = [](std::string_view t) { return t.starts_with("W/") ? t.substr(2) : t; };
  while (!header.empty()) {
    const auto comma = header.find(',');
    const auto item = trimmed(header.substr(0, comma));
    if (item == "*" || (!item.empty() && opaque(item) == opaque(tag))) return true;
    if (comma == std::string_view::npos) break;
    header.remove_prefix(comma + 1);
  }
  return false;
}

std::optional<std::string> headerOf(const httplib::Request& request, const char* name) {
  if (!request.has_header(name)) return std::nullopt;
  return request.get_header_value(name);
}

}  // namespace

struct ReferenceMarketingService::Impl {
  explicit Impl(Options o) : options(std::move(o)) {
    if (options.serviceKey.empty()) options.serviceKey = std::string(IAMWebService::kServiceKey);
    if (options.keyHeaderName.empty()) options.keyHeaderName = OspreyWebServiceEncryptionDetails::kDefaultKeyHeaderName;
  }

  Options options;  // constant after construction

  // The listening server and its thread: opened by start, closed and reopened by a refused port,
  // closed by stop. Guarded by lifecycle.
  std::mutex lifecycle;
  std::unique_ptr<httplib::Server> server;
  iam::Thread listener;
  bool portClosed = false;
  // Set by start before anything else may read them, then constant.
  std::string host;
  int port = 0;

  mutable std::mutex mutex;
  std::condition_variable stallWake;
  bool started = false;                             // guarded by mutex
  bool stopping = false;                            // guarded by mutex
  std::map<std::string, std::string> answers;       // guarded by mutex
  Fault fault = Fault::None;                        // guarded by mutex
  int faultStatus = 500;                            // guarded by mutex
  std::size_t oversizedBytes = 0;                   // guarded by mutex
  double stallSeconds = 0;                          // guarded by mutex
  std::uint64_t stallGeneration = 0;                // guarded by mutex; a change releases stalls
  std::vector<ReceivedRequest> received;            // guarded by mutex
  std::function<void(const ReceivedRequest&)> observer;  // guarded by mutex

  // Binds and serves on a new server; the bound port (0 picks one), or -1. Holds lifecycle.
  int open(const std::string& onHost, int onPort);
  // Stops serving and joins the server's threads. Holds lifecycle.
  void close();
  // Holds mutex.
  void setFault(Fault value) {
    fault = value;
    ++stallGeneration;
  }
  void releaseStalls() {
    {
      std::lock_guard lock(mutex);
      ++stallGeneration;
    }
    stallWake.notify_all();
  }

  void handle(const httplib::Request& request, httplib::Response& response, const std::string& version,
              const std::string& method);
  void answer(ReceivedRequest& record, const std::string& version, const std::string& method,
              httplib::Response& response);
};

void ReferenceMarketingService::Impl::handle(const httplib::Request& request, httplib::Response& response,
                                             const std::string& version, const std::string& method) {
  ReceivedRequest record;
  record.httpMethod = request.method;
  record.path = request.path;
  record.body = request.body;
  record.serviceKey = headerOf(request, options.keyHeaderName.c_str());
  record.ifNoneMatch = headerOf(request, "If-None-Match");
  record.contentType = headerOf(request, "Content-Type");

  {
    std::unique_lock lock(mutex);
    if (stallSeconds > 0) {
      const auto generation = stallGeneration;
      stallWake.wait_for(lock, std::chrono::duration<double>(stallSeconds),
                         [&] { return stopping || stallGeneration != generation; });
    }
  }
  answer(record, version, method, response);
  if (response.has_header("ETag")) record.answeredEntityTag = response.get_header_value("ETag");

  std::function<void(const ReceivedRequest&)> notify;
  {
    std::lock_guard lock(mutex);
    received.push_back(record);
    notify = observer;
  }
  if (notify) notify(record);
}

void ReferenceMarketingService::Impl::answer(ReceivedRequest& record, const std::string& version,
                                             const std::string& method, httplib::Response& response) {
  const auto respond = [&](int status, std::string body) {
    response.status = status;
    record.answeredStatus = status;
    if (!body.empty()) response.set_content(std::move(body), "application/json");
  };

  std::unique_lock lock(mutex);
  if (fault == Fault::Status) return respond(faultStatus, R"({"error":"failure requested"})");
  if (record.serviceKey != options.serviceKey) return respond(401, R"({"error":"wrong service key"})");
  if (version != options.version) return respond(404, R"({"error":"unknown version"})");
  const auto found = answers.find(method);
  if (found == answers.end()) return respond(404, R"({"error":"unknown method"})");

  const std::string body = found->second;
  const Fault now = fault;
  const std::size_t oversized = std::max<std::size_t>(oversizedBytes, 16);
  lock.unlock();

  switch (now) {
    case Fault::Garbage:
      return respond(200, "<html>this is not json");
    case Fault::Array:
      return respond(200, R"([{"advertisements":[]}])");
    case Fault::NotModified:
      return respond(304, "");
    case Fault::WrongEntityTag:
      response.set_header("ETag", entityTagForBytes("not " + body));
      return respond(304, "");
    case Fault::Oversized:
      // Streamed in slices: tests ask for far more than they would like to hold twice.
      respond(200, "");
      response.set_content_provider(
          oversized, "application/json", [oversized](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
            constexpr std::string_view head = R"({"padding":")", tail = R"("})";
            const std::size_t end = offset + std::min<std::size_t>(length, 64 * 1024);
            const std::size_t tailStart = oversized - tail.size();
            std::string slice(end - offset, 'x');
            for (std::size_t i = offset; i < std::min(end, head.size()); ++i) slice[i - offset] = head[i];
            for (std::size_t i = std::max(offset, tailStart); i < end; ++i) slice[i - offset] = tail[i - tailStart];
            return sink.write(slice.data(), slice.size());
          });
      return;
    default:
      break;
  }

  const std::string tag = entityTagForBytes(body);
  response.set_header("ETag", tag);
  if (now == Fault::Truncate) {
    // The announced length stays unmet: returning false closes the connection after half.
    respond(200, "");
    response.set_content_provider(body.size(), "application/json",
                                  [body](std::size_t, std::size_t, httplib::DataSink& sink) {
                                    sink.write(body.data(), body.size() / 2);
                                    return false;
                                  });
    return;
  }
  if (record.ifNoneMatch && ifNoneMatchMatches(*record.ifNoneMatch, tag)) return respond(304, "");
  respond(200, body);
}

int ReferenceMarketingService::Impl::open(const std::string& onHost, int onPort) {
  auto fresh = std::make_unique<httplib::Server>();
  fresh->set_keep_alive_timeout(1);
  fresh->set_payload_max_length(1024 * 1024);
  fresh->Post(R"(/([^/]+)/([^/]+))", [this](const httplib::Request& request, httplib::Response& response) {
    handle(request, response, request.matches[1], request.matches[2]);
  });
  int bound = onPort;
  if (onPort == 0) {
    bound = fresh->bind_to_any_port(onHost);
  } else if (!fresh->bind_to_port(onHost, onPort)) {
    bound = -1;
  }
  if (bound <= 0) return -1;
  httplib::Server* raw = fresh.get();
  server = std::move(fresh);
  listener = iam::ThreadService::current()->start("iam.refservice", iam::ThreadPriority::Normal,
                                                  [raw] { raw->listen_after_bind(); });
  // A stop that comes before the server runs would be lost and leave the listener in accept().
  for (int i = 0; i < 5000 && !raw->is_running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (!raw->is_running()) {
    close();
    return -1;
  }
  return bound;
}

void ReferenceMarketingService::Impl::close() {
  if (server) server->stop();
  if (listener.joinable()) listener.join();
  server.reset();
}

ReferenceMarketingService::ReferenceMarketingService() : ReferenceMarketingService(Options{}) {}

ReferenceMarketingService::ReferenceMarketingService(Options options)
    : impl_(std::make_unique<Impl>(std::move(options))) {}

ReferenceMarketingService::~ReferenceMarketingService() { stop(); }

bool ReferenceMarketingService::start(const std::string& host, int port) {
  {
    std::lock_guard lock(impl_->mutex);
    if (impl_->started) return false;
    impl_->started = true;
  }
  std::lock_guard life(impl_->lifecycle);
  const int bound = impl_->open(host, port);
  if (bound <= 0) return false;
  impl_->host = host;
  impl_->port = bound;
  return true;
}

void ReferenceMarketingService::stop() {
  {
    std::lock_guard lock(impl_->mutex);
    impl_->stopping = true;
  }
  impl_->stallWake.notify_all();
  std::lock_guard life(impl_->lifecycle);
  impl_->close();
}

int ReferenceMarketingService::port() const { return impl_->port; }

std::string ReferenceMarketingService::baseUrl() const {
  return fmt::format("http://{}:{}", impl_->host, impl_->port);
}

void ReferenceMarketingService::setAnswer(const std::string& method, std::string body) {
  std::lock_guard lock(impl_->mutex);
  impl_->answers[method] = std::move(body);
}

bool ReferenceMarketingService::setAnswerFromFile(const std::string& method, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  std::ostringstream bytes;
  bytes << file.rdbuf();
  if (file.bad()) return false;
  setAnswer(method, bytes.str());
  return true;
}

void ReferenceMarketingService::removeAnswer(const std::string& method) {
  std::lock_guard lock(impl_->mutex);
  impl_->answers.erase(method);
}

std::optional<std::string> ReferenceMarketingService::entityTagFor(const std::string& method) const {
  std::lock_guard lock(impl_->mutex);
  const auto found = impl_->answers.find(method);
  if (found == impl_->answers.end()) return std::nullopt;
  return entityTagForBytes(found->second);
}

std::string ReferenceMarketingService::entityTagForBytes(const std::string& bytes) {
  // FNV-1a: any change of the answer changes the tag; nothing here needs a cryptographic hash.
  std::uint64_t hash = 0xcbf29ce484222325ull;
  for (unsigned char c : bytes) {
    hash ^= c;
    hash *= 0x100000001b3ull;
  }
  return fmt::format("\"{:016x}-{:x}\"", hash, bytes.size());
}

void ReferenceMarketingService::failWithStatus(int status) {
  std::lock_guard lock(impl_->mutex);
  impl_->setFault(Fault::Status);
  impl_->faultStatus = status;
}

void ReferenceMarketingService::stallFor(double seconds) {
  std::lock_guard lock(impl_->mutex);
  impl_->stallSeconds = seconds;
}

void ReferenceMarketingService::refuseConnections() {
  {
    std::lock_guard lock(impl_->mutex);
    impl_->setFault(Fault::Refuse);
  }
  // Stalled requests hold server threads that closing the port waits for.
  impl_->stallWake.notify_all();
  std::lock_guard life(impl_->lifecycle);
  if (!impl_->server) return;
  impl_->close();
  impl_->portClosed = true;
}

bool ReferenceMarketingService::behaveNormally() {
  {
    std::lock_guard lock(impl_->mutex);
    impl_->setFault(Fault::None);
    impl_->stallSeconds = 0;
    if (impl_->stopping) return true;
  }
  impl_->stallWake.notify_all();
  std::lock_guard life(impl_->lifecycle);
  if (!impl_->portClosed) return true;
  impl_->portClosed = false;
  return impl_->open(impl_->host, impl_->port) == impl_->port;
}

std::span<const ReferenceMarketingService::FaultMode> ReferenceMarketingService::faultModes() { return kFaultModes; }

bool ReferenceMarketingService::applyFault(std::string_view name) {
  // The faults that only change how each request is answered.
  static constexpr std::pair<std::string_view, Fault> kAnswerFaults[] = {
      {"not-modified", Fault::NotModified}, {"wrong-etag", Fault::WrongEntityTag}, {"truncate", Fault::Truncate},
      {"not-json", Fault::Garbage},         {"array", Fault::Array},               {"oversized", Fault::Oversized}};
  for (const auto& [faultName, fault] : kAnswerFaults) {
    if (faultName != name) continue;
    std::lock_guard lock(impl_->mutex);
    impl_->setFault(fault);
    impl_->oversizedBytes = kFaultOversizedBytes;
    return true;
  }
  if (name == "refuse") {
    refuseConnections();
  } else if (name == "server-error") {
    failWithStatus(500);
  } else if (name == "stall") {
    stallFor(kFaultStallSeconds);
  } else {
    return false;
  }
  return true;
}

std::size_t ReferenceMarketingService::requestCount() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->received.size();
}

std::size_t ReferenceMarketingService::requestCount(const std::string& method) const {
  std::lock_guard lock(impl_->mutex);
  const std::string suffix = "/" + method;
  std::size_t count = 0;
  for (const auto& request : impl_->received) count += request.path.ends_with(suffix) ? 1 : 0;
  return count;
}

std::vector<ReferenceMarketingService::ReceivedRequest> ReferenceMarketingService::requests() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->received;
}

std::optional<ReferenceMarketingService::ReceivedRequest> ReferenceMarketingService::lastRequest() const {
  std::lock_guard lock(impl_->mutex);
  if (impl_->received.empty()) return std::nullopt;
  return impl_->received.back();
}

void ReferenceMarketingService::clearRequests() {
  std::lock_guard lock(impl_->mutex);
  impl_->received.clear();
}

void ReferenceMarketingService::setRequestObserver(std::function<void(const ReceivedRequest&)> observer) {
  std::lock_guard lock(impl_->mutex);
  impl_->observer = std::move(observer);
}

}  // namespace iam
