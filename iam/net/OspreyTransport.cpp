#include "iam/net/internal/OspreyTransport.h"

#include <curl/curl.h>
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <string_view>
#include <system_error>
#include <cstdlib>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <simdjson.h>

#include "iam/Version.h"
#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/platform/Clock.h"
#include "iam/platform/Thread.h"
#include "iam/platform/URL.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/net/internal/ZTCancelledFlag.h"

namespace iam {

namespace {

class TransportTicket;

struct Transfer {
  OspreyTransferSpec spec;
  std::shared_ptr<TransportTicket> ticket;
  CURL* easy = nullptr;
  curl_slist* headerList = nullptr;
  std::string body;
  std::optional<std::string> etag;
  bool loopback = false;
  bool oversized = false;
  char errorBuffer[CURL_ERROR_SIZE] = {};

  Transfer() = default;
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() { releaseCurl(); }

  void releaseCurl() {
    if (easy) curl_easy_cleanup(easy);
    if (headerList) curl_slist_free_all(headerList);
    easy = nullptr;
    headerList = nullptr;
  }
};

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
           return lower(x) == lower(y);
         });
}

std::string_view trimmed(std::string_view text) {
  const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

size_t onBody(char* data, size_t size, size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  const size_t bytes = size * count;
  if (bytes > transfer.spec.maximumBodySize - std::min(transfer.body.size(), transfer.spec.maximumBodySize)) {
    transfer.oversized = true;
    return 0;  // aborts the transfer
  }
  try {
    transfer.body.append(data, bytes);
  } catch (...) {
    return 0;
  }
  return bytes;
}

size_t onHeader(char* data, size_t size, size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  const std::string_view line(data, size * count);
  if (line.starts_with("HTTP/")) {
    // A new response begins (after an interim 1xx): forget what the previous one said.
    transfer.etag.reset();
    return line.size();
  }
  const auto colon = line.find(':');
  if (colon != std::string_view::npos && equalsIgnoringCase(trimmed(line.substr(0, colon)), "etag")) {
    const auto value = trimmed(line.substr(colon + 1));
    if (!value.empty()) {
      try {
        transfer.etag = std::string(value);
      } catch (...) {
        return 0;
      }
    }
  }
  return line.size();
}

// 127.0.0.0/8, ::1 and "localhost": the only hosts reached without TLS.
bool isLoopbackHost(std::string_view host) {
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    in6_addr address{};
    const std::string inner(host.substr(1, host.size() - 2));
    return inet_pton(AF_INET6, inner.c_str(), &address) == 1 && IN6_IS_ADDR_LOOPBACK(&address);
  }
  in_addr address{};
  if (inet_pton(AF_INET, std::string(host).c_str(), &address) == 1) return (ntohl(address.s_addr) >> 24) == 127;
  return equalsIgnoringCase(host, "localhost");
}

long timeoutMilliseconds(TimeInterval seconds) {
  if (!std::isfinite(seconds) || seconds <= 0) seconds = HttpRequestConfig::kDefaultTimeoutInterval;
  return static_cast<long>(std::clamp(seconds * 1000.0, 1.0, 7.0 * 24 * 3600 * 1000));
}

std::string describeCurlFailure(CURLcode code, const Transfer& transfer) {
  const std::string detail = transfer.errorBuffer[0] ? transfer.errorBuffer : curl_easy_strerror(code);
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      return fmt::format("the request timed out after {:g} seconds",
                         timeoutMilliseconds(transfer.spec.timeoutInterval) / 1000.0);
    case CURLE_COULDNT_CONNECT:
      return fmt::format("could not connect to the service ({})", detail);
    case CURLE_COULDNT_RESOLVE_HOST:
      return fmt::format("could not find the service's host ({})", detail);
    case CURLE_WRITE_ERROR:
    case CURLE_FILESIZE_EXCEEDED:
      if (transfer.oversized || code == CURLE_FILESIZE_EXCEEDED) {
        return fmt::format("the service's answer is larger than the limit of {} bytes",
                           transfer.spec.maximumBodySize);
      }
      return fmt::format("the answer could not be stored ({})", detail);
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
      return fmt::format("the service's certificate could not be verified ({})", detail);
    case CURLE_SSL_CONNECT_ERROR:
      return fmt::format("the secure connection to the service failed ({})", detail);
    case CURLE_UNSUPPORTED_PROTOCOL:
      return fmt::format("the service's address uses neither http nor https ({})", detail);
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
      return fmt::format("the connection to the service broke off ({})", detail);
    default:
      return fmt::format("the request failed ({})", detail);
  }
}

}  // namespace

namespace {

class TransportTicket final : public RequestTicketType {
 public:
  explicit TransportTicket(std::weak_ptr<OspreyTransport> transport, std::function<void()> wake)
      : transport_(std::move(transport)), wake_(std::move(wake)) {}

  bool isFinished() const override { return finished_.load(std::memory_order_acquire); }

  void cancel() override {
    if (finished_.exchange(true, std::memory_order_acq_rel)) return;
    cancelled_.cancel();
    // Only wake a transport that still exists; at exit it may be gone already.
    if (auto transport = transport_.lock()) wake_();
  }

  // True for the one caller that ends the request; false once it was cancelled.
  bool markFinished() { return !finished_.exchange(true, std::memory_order_acq_rel); }
  const ZTCancelledFlag& cancelledFlag() const { return cancelled_; }

 private:
  const std::weak_ptr<OspreyTransport> transport_;
  const std::function<void()> wake_;
  std::atomic<bool> finished_{false};
  ZTCancelledFlag cancelled_;
};

}  // namespace

struct OspreyTransport::Impl {
  std::weak_ptr<OspreyTransport> self;
  std::atomic<std::size_t> runningCount{0};
  // Made with the transport and driven only by its thread; `curl_multi_wakeup` may come from any.
  CURLM* const multi = curl_multi_init();

  mutable std::mutex mutex;
  std::vector<std::unique_ptr<Transfer>> pending;  // guarded by mutex
  Thread thread;                                   // guarded by mutex
  bool stopping = false;                           // guarded by mutex

  void wake() {
    if (multi) curl_multi_wakeup(multi);
  }

  void run();
  void stopAtExit();
  bool begin(Transfer& transfer);
  void complete(std::unique_ptr<Transfer> transfer, CURLcode code, simdjson::dom::parser& parser);
  // Both take the transfer by reference, so that an argument beside it may still read it: a
  // by-value parameter may be moved into before the other arguments are evaluated.
  void deliver(std::unique_ptr<Transfer>&& transfer, std::shared_ptr<ZTOspreyServiceRequestResultInterface> result);
  void drop(std::unique_ptr<Transfer>&& transfer);
};

OspreyTransport::OspreyTransport() {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  impl_ = std::make_unique<Impl>();
}

OspreyTransport::~OspreyTransport() = default;

std::shared_ptr<OspreyTransport> OspreyTransport::shared() {
  // Never destroyed; its thread is stopped at exit (see `start`).
  static const auto* const instance = new std::shared_ptr<OspreyTransport>([] {
    std::shared_ptr<OspreyTransport> transport(new OspreyTransport());
    transport->impl_->self = transport;
    return transport;
  }());
  return *instance;
}

std::size_t OspreyTransport::runningRequestCount() const { return impl_->runningCount.load(); }

std::shared_ptr<RequestTicketType> OspreyTransport::start(OspreyTransferSpec spec) {
  Impl& impl = *impl_;
  auto transfer = std::make_unique<Transfer>();
  transfer->spec = std::move(spec);
  transfer->ticket = std::make_shared<TransportTicket>(impl.self, [&impl] { impl.wake(); });
  auto ticket = transfer->ticket;
  impl.runningCount.fetch_add(1);

  // Answers carry the links the app opens, so they travel unverified only on this machine: plain
  // http elsewhere is refused, and certificates are always checked (see `begin`).
  const auto url = URL::URLWithString(transfer->spec.url);
  const std::string host = url ? url->host() : std::string();
  transfer->loopback = isLoopbackHost(host);
  if (url && url->scheme() == "http" && !transfer->loopback) {
    impl.deliver(std::move(transfer), OspreyServiceRequestResult::failure(fmt::format(
                                          "plain http is only allowed to this machine (127.0.0.0/8, ::1, localhost), "
                                          "not to {}; use https",
                                          host)));
    return ticket;
  }

  bool startedThread = false;
  {
    std::lock_guard lock(impl.mutex);
    if (impl.stopping) {
      impl.runningCount.fetch_sub(1);
      return ticket;  // process exit: the request never completes
    }
    if (impl.multi && !impl.thread.joinable()) {
      try {
        impl.thread = ThreadService::current()->start("iam.transport", ThreadPriority::Normal, [&impl] { impl.run(); });
        startedThread = true;
      } catch (const std::exception&) {
        // Delivered as a failure below; a later request tries again.
      }
    }
    if (impl.thread.joinable()) {
      impl.pending.push_back(std::move(transfer));
    }
  }
  if (startedThread) {
    // Handlers run in reverse order of registration, so this one runs before the TLS library's
    // cleanup that `curl_global_init` registered: no transfer is alive when that runs.
    std::atexit([] { OspreyTransport::shared()->impl_->stopAtExit(); });
  }
  if (transfer) {
    impl.deliver(std::move(transfer), OspreyServiceRequestResult::failure("the network thread could not be started"));
  } else {
    impl.wake();
  }
  return ticket;
}

void OspreyTransport::Impl::stopAtExit() {
  Thread running;
  {
    std::lock_guard lock(mutex);
    stopping = true;
    running = std::move(thread);
  }
  wake();
  running.join();
}

void OspreyTransport::Impl::run() {
  simdjson::dom::parser parser;
  std::vector<std::unique_ptr<Transfer>> active;

  for (;;) {
    std::vector<std::unique_ptr<Transfer>> incoming;
    bool stop = false;
    {
      std::lock_guard lock(mutex);
      stop = stopping;
      incoming.swap(pending);
    }
    if (stop) {
      for (auto& transfer : active) curl_multi_remove_handle(multi, transfer->easy);
      runningCount.fetch_sub(active.size() + incoming.size());
      active.clear();
      incoming.clear();
      break;
    }

    for (auto& transfer : incoming) {
      if (begin(*transfer)) {
        active.push_back(std::move(transfer));
      } else {
        deliver(std::move(transfer), OspreyServiceRequestResult::failure("the request could not be set up"));
      }
    }

    for (auto it = active.begin(); it != active.end();) {
      if ((*it)->ticket->cancelledFlag().isCancelled()) {
        curl_multi_remove_handle(multi, (*it)->easy);
        drop(std::move(*it));
        it = active.erase(it);
      } else {
        ++it;
      }
    }

    if (!active.empty()) {
      int stillRunning = 0;
      curl_multi_perform(multi, &stillRunning);
      int queued = 0;
      while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
        if (message->msg != CURLMSG_DONE) continue;
        CURL* easy = message->easy_handle;
        const CURLcode code = message->data.result;
        curl_multi_remove_handle(multi, easy);
        auto it = std::find_if(active.begin(), active.end(), [easy](const auto& t) { return t->easy == easy; });
        if (it == active.end()) continue;
        auto transfer = std::move(*it);
        active.erase(it);
        complete(std::move(transfer), code, parser);
      }
    }
    // Idle, the thread sleeps here until a request, a cancel or the exit wakes it. Connections
    // stay open in the multi handle's cache for the next request.
    curl_multi_poll(multi, nullptr, 0, active.empty() ? 60'000 : 1000, nullptr);
  }
}

bool OspreyTransport::Impl::begin(Transfer& t) {
  t.easy = curl_easy_init();
  if (!t.easy) return false;
  for (const char* header : {"Content-Type: application/json", "Accept: application/json", "Expect:"}) {
    curl_slist* next = curl_slist_append(t.headerList, header);
    if (!next) return false;
    t.headerList = next;
  }
  for (const auto& header : t.spec.headers) {
    curl_slist* next = curl_slist_append(t.headerList, header.c_str());
    if (!next) return false;
    t.headerList = next;
  }
  const long timeout = timeoutMilliseconds(t.spec.timeoutInterval);
  const auto bodySize = static_cast<curl_off_t>(t.spec.body ? t.spec.body->size() : 0);
  bool ok = curl_easy_setopt(t.easy, CURLOPT_URL, t.spec.url.c_str()) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_PROTOCOLS_STR, t.loopback ? "http,https" : "https") == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_PRIVATE, &t) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_ERRORBUFFER, t.errorBuffer) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_NOSIGNAL, 1L) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_FOLLOWLOCATION, 0L) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_TIMEOUT_MS, timeout) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_CONNECTTIMEOUT_MS, timeout) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_SSL_VERIFYPEER, 1L) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_SSL_VERIFYHOST, 2L) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_POST, 1L) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_POSTFIELDSIZE_LARGE, bodySize) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_COPYPOSTFIELDS,
                             bodySize ? reinterpret_cast<const char*>(t.spec.body->data()) : "") == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_HTTPHEADER, t.headerList) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_USERAGENT, "InAppMarketing/" IAM_VERSION_STRING) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_WRITEFUNCTION, onBody) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_WRITEDATA, &t) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_HEADERFUNCTION, onHeader) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_HEADERDATA, &t) == CURLE_OK &&
            curl_easy_setopt(t.easy, CURLOPT_MAXFILESIZE_LARGE,
                             static_cast<curl_off_t>(std::min<std::size_t>(t.spec.maximumBodySize, INT64_MAX))) ==
                CURLE_OK;
  // Compression is welcome but optional: a libcurl built without it still works.
  curl_easy_setopt(t.easy, CURLOPT_ACCEPT_ENCODING, "");
  return ok && curl_multi_add_handle(multi, t.easy) == CURLM_OK;
}

void OspreyTransport::Impl::complete(std::unique_ptr<Transfer> transfer, CURLcode code,
                                     simdjson::dom::parser& parser) {
  if (transfer->ticket->cancelledFlag().isCancelled()) return drop(std::move(transfer));
  if (code != CURLE_OK) {
    return deliver(std::move(transfer), OspreyServiceRequestResult::failure(describeCurlFailure(code, *transfer)));
  }
  long status = 0;
  curl_easy_getinfo(transfer->easy, CURLINFO_RESPONSE_CODE, &status);
  if (status == 304 && transfer->spec.sentEtag) {
    // A 304 that names another entity than those asked for does not vouch for the answer held
    // (weak comparison: the "W/" prefix aside, a tag of the sent list or "*" must match). One that
    // names none is taken at its word.
    const auto opaque = [](std::string_view tag) { return tag.starts_with("W/") ? tag.substr(2) : tag; };
    const auto asked = [&](std::string_view tag) {
      std::string_view list = *transfer->spec.sentEtag;
      while (!list.empty()) {
        const auto comma = list.find(',');
        const auto item = trimmed(list.substr(0, comma));
        if (item == "*" || opaque(item) == opaque(tag)) return true;
        if (comma == std::string_view::npos) break;
        list.remove_prefix(comma + 1);
      }
      return false;
    };
    if (transfer->etag && !asked(*transfer->etag)) {
      auto failure = OspreyServiceRequestResult::failure(
          fmt::format("the service answered that the content is unchanged, but for the entity tag {}, not {}",
                      *transfer->etag, *transfer->spec.sentEtag));
      return deliver(std::move(transfer), std::move(failure));
    }
    return deliver(std::move(transfer),
                   OspreyServiceRequestResult::notModified(OspreyServiceContentInfo::contentInfoCreatedNow()));
  }
  if (status == 401 || status == 403) {
    return deliver(std::move(transfer),
                   OspreyServiceRequestResult::failure(
                       fmt::format("the service refused the request's key (HTTP status {})", status)));
  }
  if (status < 200 || status > 299) {
    return deliver(std::move(transfer), OspreyServiceRequestResult::failure(
                                            fmt::format("the service answered with HTTP status {}", status)));
  }
  if (trimmed(transfer->body).empty()) {
    return deliver(std::move(transfer), OspreyServiceRequestResult::failure("the service's answer is empty"));
  }

  auto contentInfo = OspreyServiceContentInfo::contentInfoCreatedNow();
  simdjson::dom::element root;
  std::any data;
  std::optional<std::string> note;
  try {
    transfer->body.reserve(transfer->body.size() + simdjson::SIMDJSON_PADDING);
    auto error = parser.max_depth() == HttpRequestConfig::kMaximumJsonDepth
                     ? simdjson::SUCCESS
                     : parser.allocate(transfer->body.size(), HttpRequestConfig::kMaximumJsonDepth);
    if (!error) error = parser.parse(transfer->body).get(root);
    if (error == simdjson::DEPTH_ERROR) {
      return deliver(std::move(transfer), OspreyServiceRequestResult::failure(fmt::format(
                                              "the service's answer is nested deeper than {} levels",
                                              HttpRequestConfig::kMaximumJsonDepth)));
    }
    if (error) {
      return deliver(std::move(transfer),
                     OspreyServiceRequestResult::failure(fmt::format("the service's answer is not valid JSON ({})",
                                                                     simdjson::error_message(error))));
    }
    if (!root.is_object()) {
      return deliver(std::move(transfer), OspreyServiceRequestResult::failure("the service's answer is not a JSON object"));
    }
    if (transfer->spec.parseHandler) {
      const HttpResponseType response(status, transfer->etag);
      data = transfer->spec.parseHandler(root, response, contentInfo, transfer->ticket->cancelledFlag());
      if (!data.has_value()) note = "the service's answer was not understood";
    }
  } catch (const std::exception& e) {
    return deliver(std::move(transfer),
                   OspreyServiceRequestResult::failure(fmt::format("reading the service's answer failed ({})", e.what())));
  } catch (...) {
    return deliver(std::move(transfer), OspreyServiceRequestResult::failure("reading the service's answer failed"));
  }
  deliver(std::move(transfer), OspreyServiceRequestResult::answer(std::move(data), std::move(contentInfo), std::move(note)));
}

void OspreyTransport::Impl::deliver(std::unique_ptr<Transfer>&& transfer,
                                    std::shared_ptr<ZTOspreyServiceRequestResultInterface> result) {
  transfer->releaseCurl();
  // The handlers travel to the main loop and die there, so whatever they hold is released on the
  // thread that made it.
  ZTDispatchTools::onMainWithBlock([ticket = std::move(transfer->ticket), completion = std::move(transfer->spec.completion),
                                    parse = std::move(transfer->spec.parseHandler), result = std::move(result)] {
    if (ticket->markFinished() && completion) completion(result);
  });
  transfer.reset();
  runningCount.fetch_sub(1);
}

void OspreyTransport::Impl::drop(std::unique_ptr<Transfer>&& transfer) {
  transfer->releaseCurl();
  ZTDispatchTools::onMainWithBlock(
      [completion = std::move(transfer->spec.completion), parse = std::move(transfer->spec.parseHandler)] {});
  transfer.reset();
  runningCount.fetch_sub(1);
}

}  // namespace iam
