// A process that holds something, for as long as its owner lives.
#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarvo::test {

class HoldingProcess {
 public:
  /// The child calls `take`, which may become another program that stops itself, and stays.
  template <typename Take>
  explicit HoldingProcess(Take take) : pid_(::fork()) {
    if (pid_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that crashes leaves nothing behind
      take();
      while (true)
        ::raise(SIGSTOP);
    }
    ::waitpid(pid_, nullptr, WUNTRACED);
  }
  HoldingProcess(const HoldingProcess&) = delete;
  HoldingProcess& operator=(const HoldingProcess&) = delete;
  ~HoldingProcess() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }

  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

}  // namespace tarvo::test
