#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <mutex>
#include <ostream>

#include "tools/iam/Commands.h"
#include "tools/refservice/ReferenceMarketingService.h"

namespace iam::tool {

namespace {

// Ctrl-C and SIGTERM write one byte here; the main thread sleeps in read() until then.
int stopPipe[2] = {-1, -1};

extern "C" void onStopSignal(int) {
  const int saved = errno;
  const char byte = 1;
  [[maybe_unused]] auto ignored = ::write(stopPipe[1], &byte, 1);
  errno = saved;
}

bool readable(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return in.good();
}

}  // namespace

int runServe(const ServeOptions& options, std::ostream& out, std::ostream& err) {
  if (options.port < 0 || options.port > 65535) {
    err << "iam serve: port " << options.port << " is out of range (0 to 65535)\n";
    return 2;
  }
  ReferenceMarketingService service;
  if (!readable(options.campaign) ||
      !service.setAnswerFromFile(ReferenceMarketingService::kAdvertisementsMethod, options.campaign)) {
    err << "iam serve: cannot read the campaign file '" << options.campaign << "'\n";
    return 2;
  }
  if (options.ranked && (!readable(*options.ranked) ||
                         !service.setAnswerFromFile(ReferenceMarketingService::kNativeQualityNetworkMethod,
                                                    *options.ranked))) {
    err << "iam serve: cannot read the ranked list file '" << *options.ranked << "'\n";
    return 2;
  }

  const auto modes = ReferenceMarketingService::faultModes();
  const auto mode = std::find_if(modes.begin(), modes.end(), [&](const auto& m) { return options.fault && m.name == *options.fault; });
  if (options.fault && mode == modes.end()) {
    err << "iam serve: unknown fault '" << *options.fault << "'\n";
    return 2;
  }

  std::mutex outMutex;
  service.setRequestObserver([&](const ReferenceMarketingService::ReceivedRequest& request) {
    std::lock_guard lock(outMutex);
    out << request.httpMethod << ' ' << request.path << ' ' << request.answeredStatus << ' '
        << request.answeredEntityTag.value_or("-") << std::endl;
  });

  if (::pipe2(stopPipe, O_CLOEXEC) != 0) {
    err << "iam serve: cannot set up signal handling\n";
    return 2;
  }
  struct sigaction action {};
  action.sa_handler = onStopSignal;
  sigemptyset(&action.sa_mask);
  struct sigaction previousInt {}, previousTerm {};
  sigaction(SIGINT, &action, &previousInt);
  sigaction(SIGTERM, &action, &previousTerm);

  int status = 0;
  if (!service.start("127.0.0.1", options.port)) {
    err << "iam serve: cannot listen on 127.0.0.1:" << options.port << "\n";
    status = 2;
  } else {
    {
      std::lock_guard lock(outMutex);
      out << "serving on " << service.baseUrl() << " (Ctrl-C stops)" << std::endl;
      if (mode != modes.end()) {
        service.applyFault(mode->name);
        out << "fault " << mode->name << ": " << mode->description << std::endl;
      }
    }
    char byte = 0;
    while (::read(stopPipe[0], &byte, 1) < 0 && errno == EINTR) {
    }
    service.stop();
    std::lock_guard lock(outMutex);
    out << "stopped" << std::endl;
  }
  service.setRequestObserver(nullptr);
  sigaction(SIGINT, &previousInt, nullptr);
  sigaction(SIGTERM, &previousTerm, nullptr);
  ::close(stopPipe[0]);
  ::close(stopPipe[1]);
  stopPipe[0] = stopPipe[1] = -1;
  return status;
}

}  // namespace iam::tool
