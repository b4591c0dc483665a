#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace iam {

// A marketing service for tests, demos and `iam serve`: it answers POST /{version}/{method} on a
// loopback port with the JSON answer set for that method, an ETag derived from the answer's bytes,
// 304 when the request's If-None-Match still matches and 401 when the service key is wrong. It can
// be told to misbehave (see `faultModes`) and records every request it saw. The answer does not
// depend on the request body.
//
// Thread-safe: configure and inspect it from any thread while it serves on its own threads.
class ReferenceMarketingService {
 public:
  static constexpr const char* kAdvertisementsMethod = "advertisements";
  static constexpr const char* kNativeQualityNetworkMethod = "nativeQualityNetwork";

  struct Options {
    std::string serviceKey;  // empty: the library's key
    std::string keyHeaderName;  // empty: the library's header
    std::string version = "v1";
  };

  struct ReceivedRequest {
    std::string httpMethod;
    std::string path;
    std::string body;
    std::optional<std::string> serviceKey;
    std::optional<std::string> ifNoneMatch;
    std::optional<std::string> contentType;
    int answeredStatus = 0;
    std::optional<std::string> answeredEntityTag;
  };

  ReferenceMarketingService();
  explicit ReferenceMarketingService(Options options);
  ~ReferenceMarketingService();
  ReferenceMarketingService(const ReferenceMarketingService&) = delete;
  ReferenceMarketingService& operator=(const ReferenceMarketingService&) = delete;

  // Binds and starts serving; port 0 picks a free one. False when the address cannot be bound or
  // the service was started before.
  bool start(const std::string& host = "127.0.0.1", int port = 0);
  // Stops serving and wakes stalled requests; joins the server's threads. Idempotent.
  void stop();
  int port() const;
  // "http://{host}:{port}", the base URL clients use.
  std::string baseUrl() const;

  // The answer for a service method, kept byte for byte.
  void setAnswer(const std::string& method, std::string body);
  // Reads the answer from a file; false (and the answer unchanged) when it cannot be read.
  bool setAnswerFromFile(const std::string& method, const std::string& path);
  void removeAnswer(const std::string& method);
  // The quoted entity tag the method's current answer is served with; none without an answer.
  std::optional<std::string> entityTagFor(const std::string& method) const;
  static std::string entityTagForBytes(const std::string& bytes);

  // Faults, applied to every method until `behaveNormally`: each replaces the last, but a stall
  // comes on top of another fault and a closed port stays closed until `behaveNormally`.
  void failWithStatus(int status);
  // Holds each request this long before answering (until `behaveNormally` or `stop`).
  void stallFor(double seconds);
  // Closes the listening port: connections are refused until `behaveNormally` opens it again on
  // the same port.
  void refuseConnections();
  // Ends every fault; reopens a refused port. False when that port cannot be opened again.
  bool behaveNormally();

  struct FaultMode {
    std::string_view name;
    std::string_view description;
  };
  // The faults by name, for `iam serve --fault`.
  static std::span<const FaultMode> faultModes();
  // Switches on the fault named in `faultModes`; false for an unknown name.
  bool applyFault(std::string_view name);

  std::size_t requestCount() const;
  std::size_t requestCount(const std::string& method) const;
  std::vector<ReceivedRequest> requests() const;
  std::optional<ReceivedRequest> lastRequest() const;
  void clearRequests();
  // Called on a server thread after each answer (for `iam serve` to print what happened).
  void setRequestObserver(std::function<void(const ReceivedRequest&)> observer);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace iam
