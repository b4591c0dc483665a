// A cached answer as the manager reads it back from the preferences at start: the bytes are the
// stored value, decoded as the class the cache expects.
//
// The decoder reads any MessagePack form (a small integer in a wide encoding, keys in any order,
// unknown keys, 8- and 16-bit headers) while the archiver writes one form, so accepted bytes cannot
// in general read back to themselves. What holds is that the archiver's form is a fixed point:
// whatever is accepted archives to bytes that are accepted again and archive to the same bytes.
#include <cstddef>
#include <cstdint>
#include <span>

#include "FuzzCheck.h"
#include "iam/ArchivableClasses.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/LogBridge.h"
#include "iam/service/AdvertisementsRequestResponse.h"
#include "iam/service/NativeQualityNetworkResponse.h"

namespace {

template <class Response>
void checkFixedPoint(std::span<const std::uint8_t> bytes) {
  auto decoded = iam::KeyedUnarchiver::unarchivedObjectOfClass<Response>(bytes);
  if (!decoded) return;
  const iam::Data archived = iam::KeyedArchiver::archivedDataWithRootObject(*decoded);
  auto again = iam::KeyedUnarchiver::unarchivedObjectOfClass<Response>(archived);
  FUZZ_CHECK(again != nullptr);
  FUZZ_CHECK(iam::KeyedArchiver::archivedDataWithRootObject(*again) == archived);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  iam::LogBridge::setSink([](const iam::LogRecord&) {});
  iam::registerArchivableClasses();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> bytes(data, size);
  checkFixedPoint<iam::AdvertisementsRequestResponse>(bytes);
  checkFixedPoint<iam::NativeQualityNetworkResponse>(bytes);
  return 0;
}
