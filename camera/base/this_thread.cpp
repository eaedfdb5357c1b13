#include "camera/base/this_thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>

#include <cerrno>
#include <ctime>

namespace Tarn::ThisThread {

void Name(const char* name) noexcept { static_cast<void>(::pthread_setname_np(::pthread_self(), name)); }

void WakeOnTime() noexcept { static_cast<void>(::prctl(PR_SET_TIMERSLACK, 1, 0, 0, 0)); }

void SleepUntil(Instant when) noexcept {
  constexpr std::int64_t kSecond = 1'000'000'000;
  const std::int64_t at = when.time_since_epoch().count();
  const timespec until{static_cast<std::time_t>(at / kSecond), static_cast<long>(at % kSecond)};
  while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

bool Apply(const Schedule& schedule) noexcept {
  bool all = true;
  if (schedule.processors != 0) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (unsigned i = 0; i < 64; ++i) {
      if ((schedule.processors >> i & 1) != 0) CPU_SET(i, &set);
    }
    all = ::pthread_setaffinity_np(::pthread_self(), sizeof set, &set) == 0;
  }
  if (schedule.fifo_priority != 0) {
    const sched_param parameters{static_cast<int>(schedule.fifo_priority)};
    all = ::pthread_setschedparam(::pthread_self(), SCHED_FIFO, &parameters) == 0 && all;
  }
  return all;
}

}  // namespace Tarn::ThisThread
