#include "iam/stats/LegacyReflection.h"

#include <algorithm>
#include <limits>

#include "iam/platform/LogBridge.h"
#include "iam/stats/internal/LegacyBox.h"

namespace iam {
namespace {

constexpr std::string_view kScalarCodes = "BcCsSiIlLqQfd";

bool isScalarCode(char c) { return kScalarCodes.find(c) != std::string_view::npos; }

void warn(const std::string& message, int line, std::string_view function) {
  LogBridge::warning(message, LegacyReflection::kLogFile, line, function);
}

// "'text'", built by appending (GCC 12 misreports `"'" + std::string`).
std::string quoted(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out.push_back('\'');
  out.append(text);
  out.push_back('\'');
  return out;
}

// Type-code reader with the layout rules of a 64-bit target.
class TypeEncodingReader {
 public:
  explicit TypeEncodingReader(std::string_view code) : code_(code) {}

  // Size and alignment of the type at the current position; advances past it.
  std::optional<std::pair<std::size_t, std::size_t>> read(int depth = 0) {
    if (depth > kMaximumDepth) return std::nullopt;
    skipQualifiers();
    if (pos_ >= code_.size()) return std::nullopt;
    const char c = code_[pos_++];
    switch (c) {
      case 'c':
      case 'C':
      case 'B': return std::pair<std::size_t, std::size_t>{1, 1};
      case 's':
      case 'S': return std::pair<std::size_t, std::size_t>{2, 2};
      case 'i':
      case 'I':
      case 'f': return std::pair<std::size_t, std::size_t>{4, 4};
      case 'l':
      case 'L':
      case 'q':
      case 'Q':
      case 'd':
      case '#':
      case ':':
      case '*': return std::pair<std::size_t, std::size_t>{8, 8};
      case 'D': return std::pair<std::size_t, std::size_t>{16, 16};
      case '@':
        if (pos_ < code_.size() && code_[pos_] == '?') ++pos_;  // a block
        if (pos_ < code_.size() && code_[pos_] == '"' && !skipQuoted()) return std::nullopt;
        return std::pair<std::size_t, std::size_t>{8, 8};
      case '^':
        if (pos_ < code_.size() && code_[pos_] == '?') {
          ++pos_;  // a function pointer
        } else if (!read(depth + 1)) {
          return std::nullopt;
        }
        return std::pair<std::size_t, std::size_t>{8, 8};
      case '[': return readArray(depth);
      case '{': return readAggregate('}', false, depth);
      case '(': return readAggregate(')', true, depth);
      default: return std::nullopt;  // bit fields, unknown codes
    }
  }

 private:
  static constexpr int kMaximumDepth = 32;

  void skipQualifiers() {
    while (pos_ < code_.size() && std::string_view("rnNoORVA").find(code_[pos_]) != std::string_view::npos) ++pos_;
  }

  bool skipQuoted() {
    const auto end = code_.find('"', pos_ + 1);
    if (end == std::string_view::npos) return false;
    pos_ = end + 1;
    return true;
  }

  std::optional<std::pair<std::size_t, std::size_t>> readArray(int depth) {
    std::size_t count = 0;
    bool digits = false;
    while (pos_ < code_.size() && code_[pos_] >= '0' && code_[pos_] <= '9') {
      if (count > (std::numeric_limits<std::uint32_t>::max() / 10)) return std::nullopt;
      count = count * 10 + static_cast<std::size_t>(code_[pos_++] - '0');
      digits = true;
    }
    if (!digits) return std::nullopt;
    auto element = read(depth + 1);
    if (!element || pos_ >= code_.size() || code_[pos_] != ']') return std::nullopt;
    ++pos_;
    return std::pair<std::size_t, std::size_t>{element->first * count, element->second};
  }

  std::optional<std::pair<std::size_t, std::size_t>> readAggregate(char close, bool isUnion, int depth) {
    // The name runs to '='; without '=' the members are unknown and the size cannot be told.
    while (pos_ < code_.size() && code_[pos_] != '=' && code_[pos_] != close) ++pos_;
    if (pos_ >= code_.size() || code_[pos_] != '=') return std::nullopt;
    ++pos_;
    std::size_t size = 0;
    std::size_t alignment = 1;
    bool any = false;
    while (pos_ < code_.size() && code_[pos_] != close) {
      if (code_[pos_] == '"' && !skipQuoted()) return std::nullopt;  // a member's name
      auto member = read(depth + 1);
      if (!member) return std::nullopt;
      const auto [memberSize, memberAlignment] = *member;
      alignment = std::max(alignment, memberAlignment);
      if (isUnion) {
        size = std::max(size, memberSize);
      } else {
        size = (size + memberAlignment - 1) / memberAlignment * memberAlignment + memberSize;
      }
      any = true;
    }
    if (pos_ >= code_.size() || !any) return std::nullopt;
    ++pos_;
    size = (size + alignment - 1) / alignment * alignment;
    return std::pair<std::size_t, std::size_t>{size, alignment};
  }

  std::string_view code_;
  std::size_t pos_ = 0;
};

// Encodes a value read from an object field. False when the value has no archive form.
bool encodeObjectValue(const LegacyValue& value, std::string_view key, KeyedArchiver& encoder) {
  const auto& storage = value.storage();
  if (std::holds_alternative<std::monostate>(storage)) {
    encoder.encodeNull(key);
  } else if (const auto* n = std::get_if<LegacyValue::Number>(&storage)) {
    if (n->objCType == 'B') {
      encoder.encodeBool(n->boolValue(), key);
    } else if (n->objCType == 'f') {
      encoder.encodeFloat(legacy_detail::toFloat(n->floatingValue), key);
    } else if (n->isFloating()) {
      encoder.encodeDouble(n->floatingValue, key);
    } else if (n->isUnsigned()) {
      encoder.encodeUnsignedInteger(n->unsignedValue, key);
    } else {
      encoder.encodeInteger(n->signedValue, key);
    }
  } else if (const auto* s = std::get_if<std::string>(&storage)) {
    encoder.encodeString(std::string_view(*s), key);
  } else if (const auto* d = std::get_if<Date>(&storage)) {
    encoder.encodeDate(*d, key);
  } else if (const auto* data = std::get_if<Data>(&storage)) {
    encoder.encodeData(*data, key);
  } else if (const auto* sv = std::get_if<LegacyValue::StructValue>(&storage)) {
    encoder.encodeData(sv->bytes, key);
  } else if (const auto* object = std::get_if<std::shared_ptr<Archivable>>(&storage)) {
    encoder.encodeObject(object->get(), key);
  } else if (const auto* map = std::get_if<LegacyValue::ObjectMap>(&storage)) {
    encoder.encodeObjectMap(*map, key);
  } else {
    return false;
  }
  return true;
}

// The number boxed with exactly the scalar type of `code`.
LegacyValue::Number numberOfType(char code, const LegacyValue::Number& n) {
  using N = LegacyValue::Number;
  switch (code) {
    case 'B': return N::fromSigned('B', n.boolValue() ? 1 : 0);
    case 'c': return N::fromSigned('c', legacy_detail::numberAs<std::int8_t>(n));
    case 's': return N::fromSigned('s', legacy_detail::numberAs<std::int16_t>(n));
    case 'i': return N::fromSigned('i', legacy_detail::numberAs<std::int32_t>(n));
    case 'l':
    case 'q': return N::fromSigned(code, n.int64Value());
    case 'C': return N::fromUnsigned('C', legacy_detail::numberAs<std::uint8_t>(n));
    case 'S': return N::fromUnsigned('S', legacy_detail::numberAs<std::uint16_t>(n));
    case 'I': return N::fromUnsigned('I', legacy_detail::numberAs<std::uint32_t>(n));
    case 'L':
    case 'Q': return N::fromUnsigned(code, n.uint64Value());
    case 'f': return N::fromFloating('f', legacy_detail::toFloat(n.doubleValue()));
    default: return N::fromFloating('d', n.doubleValue());
  }
}

// What `decodeObject` yields for an archived value; false when it cannot be read back.
bool decodeObjectValue(const ArchiveValue& v, LegacyValue& out) {
  using Kind = ArchiveValue::Kind;
  switch (v.kind()) {
    case Kind::Null: out = LegacyValue(); return true;
    case Kind::Boolean: out = LegacyValue::Number::fromSigned('B', *v.boolValue() ? 1 : 0); return true;
    case Kind::Integer:
      if (auto i = v.integerValue()) {
        out = LegacyValue::Number::fromSigned('q', *i);
        return true;
      }
      if (auto u = v.unsignedValue()) {
        out = LegacyValue::Number::fromUnsigned('Q', *u);
        return true;
      }
      return false;
    case Kind::Double: out = LegacyValue::Number::fromFloating('d', *v.doubleValue()); return true;
    case Kind::String: out = std::string(*v.stringValue()); return true;
    case Kind::Date: out = *v.dateValue(); return true;
    case Kind::Data: {
      auto bytes = *v.dataValue();
      out = Data(bytes.begin(), bytes.end());
      return true;
    }
    case Kind::Object: {
      auto object = v.decodeObject();
      if (!object) return false;
      out = std::move(object);
      return true;
    }
    case Kind::Map: {
      LegacyValue::ObjectMap map;
      for (std::size_t i = 0; i < v.size(); ++i) {
        auto object = v.valueAt(i).decodeObject();
        if (!object) return false;
        map.emplace(std::string(v.keyAt(i)), std::move(object));
      }
      out = std::move(map);
      return true;
    }
    default: return false;
  }
}

// The fields of a class and its bases, the class's own first; the root contributes none.
template <class F>
void forEachIvar(const LegacyClass& cls, F&& f) {
  for (const LegacyClass* c = &cls; c != nullptr && c->superclass != nullptr; c = c->superclass) {
    for (const auto& ivar : c->ivars) f(ivar);
  }
}

bool readsField(char code) { return code == '@' || code == '{' || isScalarCode(code); }

// Encodes one field from the value read out of it (none when the object has no such field).
// Needs no lock: the value is a copy.
void encodeRead(std::string_view key, std::string_view typeEncoding, const LegacyValue* value, KeyedArchiver& encoder,
                bool& excluded) {
  static constexpr std::string_view kFunction = "encodeValueWithKey:typeEncoding:object:encoder:excluded:";
  const char code = typeEncoding.empty() ? '\0' : typeEncoding.front();
  if (!readsField(code)) {
    warn("Unknown type encoding " + quoted(typeEncoding) + " for ivar " + quoted(key) + " found.", __LINE__, kFunction);
    excluded = true;
  } else if (value == nullptr) {
    // No such field: nothing to read, so nothing is archived for it.
    excluded = true;
  } else if (code == '@') {
    if (!encodeObjectValue(*value, key, encoder)) {
      warn("Ivar " + quoted(key) + " is does not conforms to the NSCoding protocol.", __LINE__, kFunction);
      excluded = true;
    }
  } else if (code == '{') {
    const auto* s = value->get<LegacyValue::StructValue>();
    const auto size = LegacyReflection::sizeAndAlignmentOfTypeEncoding(typeEncoding);
    if (s == nullptr || !size || size->first > s->bytes.size()) {
      warn("Failed to encode struct for ivar " + quoted(key), __LINE__, kFunction);
      return;
    }
    encoder.encodeData(std::span<const std::uint8_t>(s->bytes.data(), size->first), key);
  } else {
    const auto* n = value->get<LegacyValue::Number>();
    if (n == nullptr) {
      warn("Unknown type encoding " + quoted(typeEncoding) + " for ivar " + quoted(key) + " found.", __LINE__,
           kFunction);
      excluded = true;
      return;
    }
    encodeObjectValue(numberOfType(code, *n), key, encoder);
  }
}

// One field, the object already locked.
void decodeLocked(std::string_view key, std::string_view typeEncoding, LegacyReflectable& object,
                  const KeyedUnarchiver& decoder) {
  static constexpr std::string_view kFunction = "decodeValueWithKey:typeEncoding:object:decoder:";
  const ArchiveValue archived = decoder.valueForKey(key);
  if (!archived.isPresent()) {
    warn("No encoded value found for ivar " + quoted(key) + ".", __LINE__, kFunction);
    return;
  }
  const LegacyIvar* ivar = object.legacyReflectedClass().ivarNamed(key);
  const char code = typeEncoding.empty() ? '\0' : typeEncoding.front();
  if (code == '@' || isScalarCode(code)) {
    LegacyValue value;
    if (!decodeObjectValue(archived, value) || ivar == nullptr || !ivar->write(object, value)) {
      warn("Failed to set value for ivar " + quoted(key), __LINE__, kFunction);
    }
  } else if (code == '{') {
    auto bytes = archived.dataValue();
    std::optional<LegacyValue> value;
    if (bytes) value = LegacyReflection::getValueFromData(*bytes, typeEncoding);
    if (!value || ivar == nullptr || !ivar->write(object, *value)) {
      warn("Failed to decode struct for ivar " + quoted(key), __LINE__, kFunction);
    }
  } else {
    warn("Unknown type encoding " + quoted(typeEncoding) + " for ivar " + quoted(key) + " found.", __LINE__, kFunction);
  }
}

}  // namespace

const LegacyIvar* LegacyClass::ivarNamed(std::string_view ivarName) const {
  for (const LegacyClass* c = this; c != nullptr; c = c->superclass) {
    for (const auto& ivar : c->ivars) {
      if (ivar.name == ivarName) return &ivar;
    }
  }
  return nullptr;
}

const LegacyClass& LegacyReflectable::legacyClass() {
  static constexpr LegacyClass kRoot{"NSObject", nullptr, {}};
  return kRoot;
}

void LegacyReflectable::automatedEncodeWithEncoder(KeyedArchiver& encoder) const {
  LegacyReflection::automatedEncodeWithObject(*this, encoder);
}

void LegacyReflectable::automatedEncodeWithEncoder(KeyedArchiver& encoder,
                                                   const std::vector<std::string>& exludeIvars) const {
  LegacyReflection::automatedEncodeWithObject(*this, encoder, exludeIvars);
}

void LegacyReflectable::automatedDecodeWithDecoder(const KeyedUnarchiver& decoder) {
  LegacyReflection::automatedDecodeWithObject(*this, decoder);
}

std::map<std::string, LegacyValue> LegacyReflectable::getIvarsWithValues() const {
  return LegacyReflection::getIvarsWithValuesWithObject(*this);
}

void LegacyReflection::automatedEncodeWithObject(const LegacyReflectable& object, KeyedArchiver& encoder) {
  automatedEncodeWithObject(object, encoder, {});
}

void LegacyReflection::automatedEncodeWithObject(const LegacyReflectable& object, KeyedArchiver& encoder,
                                                 const std::vector<std::string>& exludeIvars) {
  // What the caller leaves out is listed too, so that decoding skips it without a warning.
  std::vector<std::string> excludedIvars = exludeIvars;
  {
    std::lock_guard lock(object.fieldsMutex());
    forEachIvar(object.legacyReflectedClass(), [&](const LegacyIvar& ivar) {
      if (!exludeIvars.empty() && std::find(exludeIvars.begin(), exludeIvars.end(), ivar.name) != exludeIvars.end()) {
        return;
      }
      if (ivar.encodeDirect != nullptr) {
        ivar.encodeDirect(object, ivar.name, encoder);
        return;
      }
      bool excluded = false;
      const char code = ivar.typeEncoding.empty() ? '\0' : ivar.typeEncoding.front();
      const LegacyValue value = readsField(code) ? ivar.read(object) : LegacyValue();
      encodeRead(ivar.name, ivar.typeEncoding, &value, encoder, excluded);
      if (excluded) excludedIvars.emplace_back(ivar.name);
    });
  }
  encoder.encodeStringArray(excludedIvars, kExcludedIvarsKey);
}

void LegacyReflection::automatedDecodeWithObject(LegacyReflectable& object, const KeyedUnarchiver& decoder) {
  const std::vector<std::string> excludedIvars =
      decoder.decodeStringArrayForKey(kExcludedIvarsKey).value_or(std::vector<std::string>{});
  std::lock_guard lock(object.fieldsMutex());
  forEachIvar(object.legacyReflectedClass(), [&](const LegacyIvar& ivar) {
    if (std::find(excludedIvars.begin(), excludedIvars.end(), ivar.name) != excludedIvars.end()) return;
    decodeLocked(ivar.name, ivar.typeEncoding, object, decoder);
  });
  object.fieldsDidChange();
}

void LegacyReflection::encodeValueWithKey(std::string_view key, std::string_view typeEncoding,
                                          const LegacyReflectable& object, KeyedArchiver& encoder, bool& excluded) {
  const LegacyIvar* ivar = object.legacyReflectedClass().ivarNamed(key);
  std::optional<LegacyValue> value;
  if (ivar != nullptr) {
    std::lock_guard lock(object.fieldsMutex());
    value = ivar->read(object);
  }
  encodeRead(key, typeEncoding, value ? &*value : nullptr, encoder, excluded);
}

void LegacyReflection::decodeValueWithKey(std::string_view key, std::string_view typeEncoding,
                                          LegacyReflectable& object, const KeyedUnarchiver& decoder) {
  std::lock_guard lock(object.fieldsMutex());
  decodeLocked(key, typeEncoding, object, decoder);
  object.fieldsDidChange();
}

std::unordered_map<std::string, std::string> LegacyReflection::getIvarsWithTypeEncodingForClass(
    const LegacyClass& cls) {
  std::unordered_map<std::string, std::string> ivars;
  ivars.reserve(10);
  forEachIvar(cls, [&](const LegacyIvar& ivar) { ivars.emplace(ivar.name, ivar.typeEncoding); });
  return ivars;
}

std::map<std::string, LegacyValue> LegacyReflection::getIvarsWithValuesWithObject(const LegacyReflectable& object) {
  std::map<std::string, LegacyValue> values;
  std::lock_guard lock(object.fieldsMutex());
  forEachIvar(object.legacyReflectedClass(), [&](const LegacyIvar& ivar) {
    LegacyValue value = ivar.read(object);
    if (!value.isNone()) values.emplace(ivar.name, std::move(value));
  });
  return values;
}

std::optional<Data> LegacyReflection::getDataFromStructWithObject(const LegacyReflectable& object, std::string_view key,
                                                                  std::string_view typeEncoding) {
  if (typeEncoding.empty() || typeEncoding.front() != '{') return std::nullopt;
  const auto size = sizeAndAlignmentOfTypeEncoding(typeEncoding);
  const LegacyIvar* ivar = object.legacyReflectedClass().ivarNamed(key);
  if (!size || ivar == nullptr) return std::nullopt;
  LegacyValue value;
  {
    std::lock_guard lock(object.fieldsMutex());
    value = ivar->read(object);
  }
  const auto* s = value.get<LegacyValue::StructValue>();
  if (s == nullptr || s->bytes.size() < size->first) return std::nullopt;
  return Data(s->bytes.begin(), s->bytes.begin() + static_cast<std::ptrdiff_t>(size->first));
}

std::optional<LegacyValue> LegacyReflection::getValueFromData(std::span<const std::uint8_t> data,
                                                              std::string_view typeEncoding) {
  if (typeEncoding.empty() || typeEncoding.front() != '{') return std::nullopt;
  const auto size = sizeAndAlignmentOfTypeEncoding(typeEncoding);
  if (!size || size->first != data.size()) return std::nullopt;
  return LegacyValue(LegacyValue::StructValue{std::string(typeEncoding), Data(data.begin(), data.end())});
}

std::optional<std::pair<std::size_t, std::size_t>> LegacyReflection::sizeAndAlignmentOfTypeEncoding(
    std::string_view typeEncoding) {
  return TypeEncodingReader(typeEncoding).read();
}

}  // namespace iam
