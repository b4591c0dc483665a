#include "iam/platform/URL.h"

#include <curl/curl.h>

#include <memory>

namespace iam {
namespace {

struct UrlHandleDeleter {
  void operator()(CURLU* h) const { curl_url_cleanup(h); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlHandleDeleter>;

UrlHandle parse(const std::string& text) {
  UrlHandle h(curl_url());
  if (!h) return nullptr;
  // Non-web schemes (the store's, the app's own) are URLs too.
  if (curl_url_set(h.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) return nullptr;
  return h;
}

std::string part(const std::string& text, CURLUPart which) {
  auto h = parse(text);
  if (!h) return {};
  char* out = nullptr;
  if (curl_url_get(h.get(), which, &out, 0) != CURLUE_OK || !out) return {};
  std::string result(out);
  curl_free(out);
  return result;
}

}  // namespace

std::optional<URL> URL::URLWithString(std::string_view text) {
  if (text.empty() || text.find('\0') != std::string_view::npos) return std::nullopt;
  std::string owned(text);
  if (!parse(owned)) return std::nullopt;
  return URL(std::move(owned));
}

std::string URL::scheme() const { return part(text_, CURLUPART_SCHEME); }
std::string URL::host() const { return part(text_, CURLUPART_HOST); }

}  // namespace iam
