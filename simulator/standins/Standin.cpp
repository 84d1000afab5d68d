#include "simulator/standins/Standin.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>

#include "Utilities/FileDescriptor.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo::simulator {

nlohmann::json standinReport(int argc, char** argv) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  auto arguments = nlohmann::json::array();
  for (int i = 1; i < argc; ++i)
    arguments.push_back(argv[i]);
  return {{"program", lastPathComponent(argv[0])},
          {"pid", ::getpid()},
          {"arguments", arguments},
          {"started", static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9}};
}

void writeReport(const nlohmann::json& report) {
  const auto line = report.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  const char* path = std::getenv("TARVO_STANDIN_LOG");
  const FileDescriptor file(path != nullptr
                                ? ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600)
                                : ::dup(STDOUT_FILENO));
  // One write, so that lines of several stand-ins do not mix.
  if (::write(file.get(), line.data(), line.size()) < 0) std::exit(1);
}

void stay() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  // Blocked rather than handled: there is nothing to do but return.
  sigprocmask(SIG_BLOCK, &ends, nullptr);
  const char* seconds = std::getenv("TARVO_STANDIN_SECONDS");
  if (seconds == nullptr) {
    int signal = 0;
    sigwait(&ends, &signal);
    return;
  }
  // Waits for the signals meanwhile, so that it still ends at once when told to.
  const double wanted = std::atof(seconds);
  timespec time{};
  time.tv_sec = static_cast<time_t>(wanted);
  time.tv_nsec = static_cast<long>((wanted - static_cast<double>(time.tv_sec)) * 1e9);
  sigtimedwait(&ends, nullptr, &time);
}

}  // namespace tarvo::simulator
