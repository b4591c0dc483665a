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
#include "iam/service/AdvertisementsRequestResponse.h"
#include "iam/service/NativeQualityNetworkResponse.h"

namespace iam::fuzz {

// The archive form keeps everything but an advertisement's "okActionMeta", which it writes and
// never reads; these make a parsed answer what its archive reads back as.
inline void dropWhatTheArchiveDoesNotReadBack(AdvertisementsRequestResponse& answer) {
  for (const auto& advertisement : answer.advertisements()) advertisement->setOkActionMeta(std::nullopt);
}
inline void dropWhatTheArchiveDoesNotReadBack(NativeQualityNetworkResponse&) {}

// Parses the input twice, silent and with a diagnostics sink, and checks that the sink changes
// nothing (compared through the archive, which holds every field) and that every refusal is
// reported. What the parser accepts must archive and read back as what was parsed, less what the
// archive form does not read back.
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
  dropWhatTheArchiveDoesNotReadBack(*silent);
  FUZZ_CHECK(KeyedArchiver::archivedDataWithRootObject(*readBack) == KeyedArchiver::archivedDataWithRootObject(*silent));
}

}  // namespace iam::fuzz
