#include "iam/net/OspreyWebService.h"

#include <nlohmann/json.hpp>

#include <algorithm>

#include "iam/net/internal/OspreyTransport.h"
#include "iam/platform/URL.h"

namespace iam {

namespace {

// A method or version must stay one path segment made of unreserved characters.
bool isPlainPathSegment(std::string_view text) {
  if (text.empty() || text == "." || text == "..") return false;
  return std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
  });
}

// Header values come from callers and from stored answers; control characters would let them
// write further headers.
std::string withoutControlCharacters(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  for (char c : text) {
    if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) clean.push_back(c);
  }
  return clean;
}

}  // namespace

OspreyWebService::OspreyWebService(std::string baseUrl) : baseUrl_(std::move(baseUrl)) {}

std::shared_ptr<OspreyServiceRequest> OspreyWebService::createRequestFor(std::string_view method,
                                                                         std::optional<Data> content) const {
  if (!isPlainPathSegment(method)) return nullptr;
  if (version_ && !version_->empty() && !isPlainPathSegment(*version_)) return nullptr;
  if (baseUrl_.find_first_of("?#") != std::string::npos) return nullptr;
  const auto base = URL::URLWithString(baseUrl_);
  if (!base) return nullptr;
  const std::string scheme = base->scheme();
  if (scheme != "http" && scheme != "https") return nullptr;
  if (base->host().empty()) return nullptr;

  std::string url = baseUrl_;
  while (!url.empty() && url.back() == '/') url.pop_back();
  if (version_ && !version_->empty()) url += "/" + *version_;
  url += "/";
  url += method;
  return std::make_shared<OspreyServiceRequest>(std::move(url), std::string(method), std::move(content));
}

std::shared_ptr<RequestTicketType> OspreyWebService::execute(
    const std::shared_ptr<OspreyServiceRequest>& request) const {
  if (!request) return nullptr;
  OspreyTransferSpec spec;
  spec.url = request->url();
  spec.body = request->content();
  const auto& config = request->httpConfig();
  spec.timeoutInterval = config.timeoutInterval();
  spec.maximumBodySize = config.maximumBodySize();
  const auto& details = encryptionDetails_;
  if (!details.key().empty() && !details.keyHeaderName().empty()) {
    spec.headers.push_back(withoutControlCharacters(details.keyHeaderName()) + ": " +
                           withoutControlCharacters(details.key()));
  }
  if (config.etag()) {
    const std::string etag = withoutControlCharacters(*config.etag());
    if (!etag.empty()) {
      spec.headers.push_back("If-None-Match: " + etag);
      spec.sentEtag = etag;
    }
  }
  spec.completion = request->completionHandler();
  spec.parseHandler = request->ospreyProcessReceivedDataHandler();
  return OspreyTransport::shared()->start(std::move(spec));
}

std::size_t OspreyWebService::runningRequestCountForTesting() {
  return OspreyTransport::shared()->runningRequestCount();
}


std::optional<Data> ztData(const nlohmann::json& jsonObject, unsigned options) {
  try {
    const bool pretty = (options & ZTJSONWritingOptionsPrettyPrinted) != 0;
    const std::string text = jsonObject.dump(pretty ? 2 : -1);
    return Data(text.begin(), text.end());
  } catch (...) {
    return std::nullopt;
  }
}

}  // namespace iam
