#pragma once

// Reading the members of the service's JSON answers with the answers' own types. Only the parsers'
// .cpp files include it, because it pulls in simdjson.
//
// The types are strict: a boolean is not an integer, a string is not a number, null is nothing.
// An integer is a JSON number with an exact signed 64-bit value (so 14.0 is the integer 14, 14.5
// and 1e19 are not).

#include <simdjson.h>

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include <fmt/format.h>

#include "iam/model/ZTIAMParseDiagnostics.h"
#include "iam/platform/Date.h"

namespace iam::json {

using simdjson::dom::array;
using simdjson::dom::element;
using simdjson::dom::element_type;
using simdjson::dom::object;

inline std::optional<element> member(const object& o, std::string_view key) {
  auto r = o.at_key(key);
  if (r.error()) return std::nullopt;
  return r.value_unsafe();
}

inline std::optional<std::string_view> asString(const element& e) {
  if (e.type() != element_type::STRING) return std::nullopt;
  return e.get_string().value_unsafe();
}

inline std::optional<std::int64_t> asInteger(const element& e) {
  switch (e.type()) {
    case element_type::INT64:
      return e.get_int64().value_unsafe();
    case element_type::DOUBLE: {
      double d = e.get_double().value_unsafe();
      // [-2^63, 2^63): the range in which a double converts to int64 without overflow.
      if (d >= -9223372036854775808.0 && d < 9223372036854775808.0 && std::trunc(d) == d) {
        return static_cast<std::int64_t>(d);
      }
      return std::nullopt;
    }
    default:
      return std::nullopt;  // UINT64 is beyond the signed range
  }
}

inline std::optional<double> asDouble(const element& e) {
  switch (e.type()) {
    case element_type::INT64:
      return static_cast<double>(e.get_int64().value_unsafe());
    case element_type::UINT64:
      return static_cast<double>(e.get_uint64().value_unsafe());
    case element_type::DOUBLE:
      return e.get_double().value_unsafe();
    default:
      return std::nullopt;
  }
}

// A number that fits a 32-bit float once narrowed (precision may go, range may not).
inline std::optional<float> asFloat(const element& e) {
  auto d = asDouble(e);
  if (!d || std::fabs(*d) > 3.4028234663852886e38) return std::nullopt;
  return static_cast<float>(*d);
}

inline std::optional<bool> asBool(const element& e) {
  if (e.type() != element_type::BOOL) return std::nullopt;
  return e.get_bool().value_unsafe();
}

inline std::optional<object> asObject(const element& e) {
  if (e.type() != element_type::OBJECT) return std::nullopt;
  return e.get_object().value_unsafe();
}

inline std::optional<array> asArray(const element& e) {
  if (e.type() != element_type::ARRAY) return std::nullopt;
  return e.get_array().value_unsafe();
}

// What a value is, for a reason text: "a string", "the number 13", "null", ...
inline std::string describe(const element& e) {
  switch (e.type()) {
    case element_type::STRING:
      return "a string";
    case element_type::INT64:
      return fmt::format("the number {}", e.get_int64().value_unsafe());
    case element_type::UINT64:
      return fmt::format("the number {}", e.get_uint64().value_unsafe());
    case element_type::DOUBLE:
      return fmt::format("the number {}", e.get_double().value_unsafe());
    case element_type::BOOL:
      return e.get_bool().value_unsafe() ? "true" : "false";
    case element_type::NULL_VALUE:
      return "null";
    case element_type::OBJECT:
      return "an object";
    case element_type::ARRAY:
      return "an array";
  }
  return "a value";
}

// The expected kinds, for reason texts.
inline constexpr std::string_view kString = "a string";
inline constexpr std::string_view kInteger = "an integer";
inline constexpr std::string_view kNumber = "a number";
inline constexpr std::string_view kBoolean = "a boolean";
inline constexpr std::string_view kObject = "an object";
inline constexpr std::string_view kArray = "an array";

// Reads a member that the item cannot do without. Absent, null or of another kind: reports at the
// member's path with `consequence` ("advertisement dropped") and gives none.
template <class Read>
auto requiredMember(const object& o, std::string_view key, Read read, std::string_view expected,
              const ZTIAMParseContext& context, std::string_view consequence) -> decltype(read(std::declval<element>())) {
  auto e = member(o, key);
  if (!e) {
    if (context.isReporting()) context.member(key).report(fmt::format("missing ({})", consequence));
    return std::nullopt;
  }
  auto value = read(*e);
  if (!value && context.isReporting()) {
    context.member(key).report(fmt::format("is {}, not {} ({})", describe(*e), expected, consequence));
  }
  return value;
}

// Reads a member that may be left out. Absent or null: none, silently. Of another kind: none,
// reported as ignored.
template <class Read>
auto optionalMember(const object& o, std::string_view key, Read read, std::string_view expected,
              const ZTIAMParseContext& context) -> decltype(read(std::declval<element>())) {
  auto e = member(o, key);
  if (!e) return std::nullopt;
  auto value = read(*e);
  if (!value && context.isReporting() && e->type() != element_type::NULL_VALUE) {
    context.member(key).report(fmt::format("is {}, not {} (ignored)", describe(*e), expected));
  }
  return value;
}

inline std::optional<std::string> toString(std::optional<std::string_view> s) {
  if (!s) return std::nullopt;
  return std::string(*s);
}

// Seconds since 1970 as a date; beyond the range of a date the nearest representable one, so that
// a far-future end stays far in the future.
inline Date dateFromTimestamp(double seconds) {
  constexpr double kLimit = 9.2e9;  // about 291 years either side, inside Date's nanosecond range
  if (seconds > kLimit) seconds = kLimit;
  if (seconds < -kLimit) seconds = -kLimit;
  return dateWithTimeIntervalSince1970(seconds);
}

// Parses `text` with a parser kept per thread (its buffers are reused from answer to answer) and
// calls `body(root)`. A nested call on the same thread (from a diagnostics sink) gets its own
// parser. On invalid JSON reports at the root and gives false.
bool withParsedText(std::string_view text, const ZTIAMParseContext& context, std::string_view consequence,
                    void (*body)(void*, const element&), void* bodyContext);

// The text form of every parser: parses `text` as above and answers `parse(root, context)`. None
// on invalid JSON or when anything throws.
template <class Parse>
auto parseText(std::string_view text, ZTIAMParseDiagnostics* diagnostics, std::string_view consequence, Parse&& parse)
    -> std::invoke_result_t<Parse&, const element&, const ZTIAMParseContext&> {
  std::invoke_result_t<Parse&, const element&, const ZTIAMParseContext&> result;
  const ZTIAMParseContext context(diagnostics);
  auto body = [&](const element& root) { result = parse(root, context); };
  try {
    withParsedText(
        text, context, consequence,
        [](void* b, const element& root) { (*static_cast<decltype(body)*>(b))(root); }, &body);
  } catch (...) {
    return nullptr;
  }
  return result;
}

}  // namespace iam::json
