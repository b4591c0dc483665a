// The marketing service's advertisements answer, from the bytes of an HTTP body.
#include "AnswerChecks.h"
#include "iam/platform/LogBridge.h"
#include "iam/service/AdvertisementsResponseParser.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  iam::LogBridge::setSink([](const iam::LogRecord&) {});
  iam::registerArchivableClasses();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const iam::AdvertisementsResponseParser parser;
  iam::fuzz::checkAnswerParser<iam::AdvertisementsRequestResponse>(parser, data, size);
  return 0;
}
