#include "iam/model/JsonFields.hpp"

namespace iam::json {

bool withParsedText(std::string_view text, const ZTIAMParseContext& context, std::string_view consequence,
                    void (*body)(void*, const element&), void* bodyContext) {
  thread_local simdjson::dom::parser sharedParser;
  thread_local bool sharedParserInUse = false;

  std::optional<simdjson::dom::parser> ownParser;
  simdjson::dom::parser* parser = &sharedParser;
  if (sharedParserInUse) {
    ownParser.emplace();
    parser = &*ownParser;
  }
  struct InUse {
    bool& flag;
    bool previous;
    ~InUse() { flag = previous; }
  } inUse{sharedParserInUse, sharedParserInUse};
  sharedParserInUse = true;

  auto root = parser->parse(text.data(), text.size(), /*realloc_if_needed=*/true);
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
