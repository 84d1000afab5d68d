#include "tools/vcard/Lockdown.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <system_error>

#include "Utilities/FileDescriptor.h"
#include "tools/vcard/CardText.h"

namespace tarvo::vcard {
namespace {

// A book of 10,000 cards needs less than a half of the one, most of it for libraries, and a tenth
// of the other.
constexpr rlim_t kMostMemory = rlim_t{256} << 20;
constexpr rlim_t kMostSeconds = 5;

struct Limit {
  __rlimit_resource resource;
  rlim_t most;
};

constexpr std::array kLimits = {Limit{RLIMIT_AS, kMostMemory},   Limit{RLIMIT_CPU, kMostSeconds},
                                Limit{RLIMIT_FSIZE, kMostBytes}, Limit{RLIMIT_CORE, 0},
                                Limit{RLIMIT_NOFILE, 0},         Limit{RLIMIT_NPROC, 0}};

/// What the kernel of one version of Landlock can forbid; the header may be older than the kernel.
struct LandlockRights {
  std::uint64_t files;
  std::uint64_t network;
  std::uint64_t scopes;  ///< abstract sockets and signals of others
};

constexpr std::uint64_t lowest(unsigned bits) {
  return (std::uint64_t{1} << bits) - 1;
}

/// By version, from 1 on: truncating came with 3, ports with 4, ioctls with 5, scopes with 6.
constexpr std::array kRights = {
    LandlockRights{lowest(13), 0, 0},         LandlockRights{lowest(14), 0, 0},
    LandlockRights{lowest(15), 0, 0},         LandlockRights{lowest(15), lowest(2), 0},
    LandlockRights{lowest(16), lowest(2), 0}, LandlockRights{lowest(16), lowest(2), lowest(2)}};

void raiseIf(int error, const char* what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

void denyPrivileges() {
  raiseIf(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 ? 0 : errno, "no_new_privs");
}

// Memory, time, and how abort() ends a process; nothing that takes a path or makes a descriptor.
constexpr std::array kCalls = {
    SCMP_SYS(brk),          SCMP_SYS(clock_gettime), SCMP_SYS(clock_gettime64),
    SCMP_SYS(exit),         SCMP_SYS(exit_group),    SCMP_SYS(futex),
    SCMP_SYS(futex_time64), SCMP_SYS(getpid),        SCMP_SYS(getrandom),
    SCMP_SYS(gettid),       SCMP_SYS(gettimeofday),  SCMP_SYS(madvise),
    SCMP_SYS(mremap),       SCMP_SYS(munmap),        SCMP_SYS(restart_syscall),
    SCMP_SYS(rt_sigreturn), SCMP_SYS(rt_sigprocmask)};

/// Those that look for a file, which find none.
constexpr std::array kOpening = {SCMP_SYS(open), SCMP_SYS(openat)};

/// A condition on an argument, in those of its 32 bits that count; the library's own macros for it
/// are C alone.
constexpr scmp_arg_cmp argumentIs(unsigned number, std::uint32_t value,
                                  std::uint32_t counting = 0xFFFFFFFF) {
  return {number, SCMP_CMP_MASKED_EQ, counting, value};
}

class CallList {
 public:
  CallList() : context_(::seccomp_init(SCMP_ACT_KILL_PROCESS)) {
    if (!context_) raiseIf(ENOSYS, "seccomp");
    raiseIf(-::seccomp_attr_set(context_.get(), SCMP_FLTATR_CTL_TSYNC, 1), "seccomp");
  }

  template <typename... Conditions>
  void add(std::uint32_t action, int call, Conditions... conditions) {
    raiseIf(-::seccomp_rule_add(context_.get(), action, call, sizeof...(conditions), conditions...),
            "seccomp rule");
  }
  void load() { raiseIf(-::seccomp_load(context_.get()), "seccomp"); }

 private:
  struct Release {
    void operator()(scmp_filter_ctx context) const { ::seccomp_release(context); }
  };
  std::unique_ptr<void, Release> context_;
};

void denyCalls() {
  CallList list;
  for (const int call : kCalls)
    list.add(SCMP_ACT_ALLOW, call);
  for (const int call : kOpening)
    list.add(SCMP_ACT_ERRNO(EACCES), call);
  list.add(SCMP_ACT_ALLOW, SCMP_SYS(read), argumentIs(0, STDIN_FILENO));
  for (const auto out : {STDOUT_FILENO, STDERR_FILENO})
    list.add(SCMP_ACT_ALLOW, SCMP_SYS(write), argumentIs(0, static_cast<unsigned>(out)));
  // Memory of its own, in which nothing can be executed.
  for (const int map : {SCMP_SYS(mmap), SCMP_SYS(mmap2)})
    list.add(SCMP_ACT_ALLOW, map, argumentIs(2, 0, PROT_EXEC),
             argumentIs(3, MAP_ANONYMOUS, MAP_ANONYMOUS));
  list.add(SCMP_ACT_ALLOW, SCMP_SYS(tgkill), argumentIs(0, static_cast<unsigned>(::getpid())),
           argumentIs(2, SIGABRT));
  list.load();
}

}  // namespace

bool denyFiles() {
  denyPrivileges();
  const long version =
      ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < 1) return false;
  const auto known = std::min(static_cast<std::size_t>(version), kRights.size());
  const LandlockRights rights = kRights.at(known - 1);
  // A kernel refuses what it does not know, unless it is zero.
  const FileDescriptor rules(
      static_cast<int>(::syscall(SYS_landlock_create_ruleset, &rights, sizeof rights, 0)));
  return rules.isOpen() && ::syscall(SYS_landlock_restrict_self, rules.get(), 0) == 0;
}

void lockDown() {
  denyPrivileges();
  denyFiles();
  for (const auto& [resource, most] : kLimits) {
    rlimit limit = {};
    raiseIf(::getrlimit(resource, &limit) == 0 ? 0 : errno, "limits");
    // No user may put a limit up again.
    limit.rlim_max = std::min(limit.rlim_max, most);
    limit.rlim_cur = limit.rlim_max;
    raiseIf(::setrlimit(resource, &limit) == 0 ? 0 : errno, "limits");
  }
  // Last, for it has no calls for any of that.
  denyCalls();
}

}  // namespace tarvo::vcard
