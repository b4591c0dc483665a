#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "FuzzCheck.h"
#include "iam/ArchivableClasses.h"
#include "iam/model/ZTIAMParseDiagnostics.h"
#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"

namespace iam::fuzz {

// Parses the input twice, silent and with a diagnostics sink, and checks that the sink changes
// nothing (compared through the archive, which holds every field) and that every refusal is
// reported. What the parser accepts must archive, read back, and archive to the same bytes: the
// cache holds exactly what was parsed.
template <class Response, class Parser>
void checkAnswerParser(const Parser& parser, const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  // One content info for both parses: its dates are part of the archive.
  auto contentInfo = std::make_shared<OspreyServiceContentInfo>(Date{std::chrono::seconds(1700000000)}, false);
  auto silent = parser.parse(text, contentInfo, std::string("\"etag\""));
  ZTIAMCollectingParseDiagnostics diagnostics;
  auto told = parser.parse(text, contentInfo, std::string("\"etag\""), &diagnostics);

  FUZZ_CHECK((silent == nullptr) == (told == nullptr));
  if (!silent) {
    FUZZ_CHECK(!diagnostics.entries().empty());
    return;
  }
  const Data archived = KeyedArchiver::archivedDataWithRootObject(*silent);
  FUZZ_CHECK(archived == KeyedArchiver::archivedDataWithRootObject(*told));
  auto readBack = KeyedUnarchiver::unarchivedObjectOfClass<Response>(archived);
  FUZZ_CHECK(readBack != nullptr);
  FUZZ_CHECK(KeyedArchiver::archivedDataWithRootObject(*readBack) == archived);
}

}  // namespace iam::fuzz
