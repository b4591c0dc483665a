// The native quality network answer, from the bytes of an HTTP body.
#include "AnswerChecks.h"
#include "iam/platform/LogBridge.h"
#include "iam/service/NativeQualityNetworkResponseParser.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  iam::LogBridge::setSink([](const iam::LogRecord&) {});
  iam::registerArchivableClasses();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const iam::NativeQualityNetworkResponseParser parser;
  iam::fuzz::checkAnswerParser<iam::NativeQualityNetworkResponse>(parser, data, size);
  return 0;
}
