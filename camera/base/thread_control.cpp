#include "camera/base/thread_control.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace Tarn {

void ThisThread::Name(const char* name) noexcept {
  static_cast<void>(::pthread_setname_np(::pthread_self(), name));
}

namespace {

/// What the system call takes. Source: Linux, include/uapi/linux/sched/types.h, first version.
struct SchedulingAttributes {
  std::uint32_t size = sizeof(SchedulingAttributes);
  std::uint32_t policy = SCHED_OTHER;
  std::uint64_t flags = 0;
  std::int32_t nice = 0;
  std::uint32_t priority = 0;
  std::uint64_t runtime = 0;  ///< nanoseconds; of usual threads the turn, since Linux 6.12
  std::uint64_t deadline = 0;
  std::uint64_t period = 0;
};

}  // namespace

void ThisThread::WakeOnTime() noexcept {
  static_cast<void>(::prctl(PR_SET_TIMERSLACK, 1, 0, 0, 0));
  SchedulingAttributes attributes;
  attributes.nice = ::getpriority(PRIO_PROCESS, 0);
  attributes.runtime = 100'000;  // the least that it takes
  static_cast<void>(::syscall(SYS_sched_setattr, 0, &attributes, 0));
}

void ThisThread::SleepUntil(Instant when) noexcept {
  constexpr std::int64_t kSecond = 1'000'000'000;
  const std::int64_t at = when.time_since_epoch().count();
  const timespec until{static_cast<std::time_t>(at / kSecond), static_cast<long>(at % kSecond)};
  while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

bool ThreadSchedule::ApplyTo(std::thread& thread) const noexcept {
  const pthread_t handle = thread.native_handle();
  cpu_set_t set;
  CPU_ZERO(&set);
  for (unsigned i = 0; i < 64; ++i) {
    if ((processors >> i & 1) != 0) CPU_SET(i, &set);
  }
  // The main thread's id is that of the process.
  if (processors == 0 && ::sched_getaffinity(::getpid(), sizeof set, &set) != 0) return false;
  const sched_param parameters{static_cast<int>(fifo_priority)};
  const bool placed = ::pthread_setaffinity_np(handle, sizeof set, &set) == 0;
  const bool scheduled =
      ::pthread_setschedparam(handle, fifo_priority != 0 ? SCHED_FIFO : SCHED_OTHER, &parameters) == 0;
  return placed && scheduled;
}

}  // namespace Tarn
