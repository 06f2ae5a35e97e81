#include "platform/KelThread.h"

#include <cstdint>
#include <linux/capability.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int CHECK_HOST = 1;
constexpr int CHECK_PERMISSION = 2;

pthread_mutex_t processLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

bool HostHasPriority(int priority) {
  return priority >= sched_get_priority_min(SCHED_FIFO) &&
         priority <= sched_get_priority_max(SCHED_FIFO);
}

bool ProcessMaySchedule() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[2]{};
  return syscall(SYS_capget, &header, sets) == 0 &&
         (sets[0].effective & (std::uint32_t{1} << CAP_SYS_NICE)) != 0;
}

bool LimitAllowsPriority(int priority) {
  rlimit limit{};
  return getrlimit(RLIMIT_RTPRIO, &limit) == 0 && priority >= 0 &&
         static_cast<rlim_t>(priority) <= limit.rlim_cur;
}

}  // namespace

int KelThreadLock() { return pthread_mutex_lock(&processLock) == 0 ? 1 : 0; }

int KelThreadUnlock() { return pthread_mutex_unlock(&processLock) == 0 ? 1 : 0; }

int KelThreadPriorityOK(int priority, int checks) {
  if ((checks & CHECK_HOST) != 0 && !HostHasPriority(priority))
    return 0;
  if ((checks & CHECK_PERMISSION) != 0 && !LimitAllowsPriority(priority) && !ProcessMaySchedule())
    return 0;
  return 1;
}
