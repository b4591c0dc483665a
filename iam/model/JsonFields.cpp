#include "iam/model/internal/JsonFields.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "iam/net/HttpRequestConfig.h"

namespace iam::json {

namespace {

// simdjson reads a little past the end of its input, so the text is copied into a padded buffer.
// The buffer is kept per thread, like the parser: a fresh multi-megabyte allocation for every
// answer costs more than the copy. A buffer grown for an unusually large answer is let go.
class PaddedBuffer {
 public:
  std::string_view copy(std::string_view text) {
    const std::size_t needed = text.size() + simdjson::SIMDJSON_PADDING;
    if (needed > capacity_) {
      capacity_ = std::max(needed, capacity_ + capacity_ / 2);
      bytes_ = std::make_unique<char[]>(capacity_);
    }
    std::memcpy(bytes_.get(), text.data(), text.size());
    std::memset(bytes_.get() + text.size(), 0, simdjson::SIMDJSON_PADDING);
    return {bytes_.get(), text.size()};
  }
  void trim() {
    if (capacity_ > kKeptCapacity) {
      bytes_.reset();
      capacity_ = 0;
    }
  }

  static constexpr std::size_t kKeptCapacity = 16 << 20;

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t capacity_ = 0;
};

}  // namespace

bool withParsedText(std::string_view text, const ZTIAMParseContext& context, std::string_view consequence,
                    void (*body)(void*, const element&), void* bodyContext) {
  thread_local simdjson::dom::parser sharedParser;
  thread_local PaddedBuffer sharedBuffer;
  thread_local bool sharedParserInUse = false;

  std::optional<simdjson::dom::parser> ownParser;
  std::optional<PaddedBuffer> ownBuffer;
  simdjson::dom::parser* parser = &sharedParser;
  PaddedBuffer* buffer = &sharedBuffer;
  if (sharedParserInUse) {
    ownParser.emplace();
    ownBuffer.emplace();
    parser = &*ownParser;
    buffer = &*ownBuffer;
  }
  struct InUse {
    bool& flag;
    bool previous;
    PaddedBuffer* buffer;
    simdjson::dom::parser* parser;
    std::size_t size;
    ~InUse() {
      flag = previous;
      buffer->trim();
      // The parser's own buffers grow with the text; let an outsized one go too.
      if (size > PaddedBuffer::kKeptCapacity) *parser = simdjson::dom::parser();
    }
  } inUse{sharedParserInUse, sharedParserInUse, buffer, parser, text.size()};
  sharedParserInUse = true;

  const auto padded = buffer->copy(text);
  constexpr std::size_t kDepth = HttpRequestConfig::kMaximumJsonDepth;
  if (parser->max_depth() != kDepth && parser->allocate(std::max<std::size_t>(text.size(), 1), kDepth)) {
    if (context.isReporting()) context.report(fmt::format("could not be read: out of memory ({})", consequence));
    return false;
  }
  auto root = parser->parse(padded.data(), padded.size(), /*realloc_if_needed=*/false);
  if (root.error() == simdjson::DEPTH_ERROR) {
    if (context.isReporting()) context.report(fmt::format("nested deeper than {} levels ({})", kDepth, consequence));
    return false;
  }
  if (root.error()) {
    if (context.isReporting()) {
      context.report(fmt::format("not valid JSON: {} ({})", simdjson::error_message(root.error()), consequence));
    }
    return false;
  }
  body(bodyContext, root.value_unsafe());
  return true;
}

}  // namespace iam::json
