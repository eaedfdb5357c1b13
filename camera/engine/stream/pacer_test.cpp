#include "camera/engine/stream/pacer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>

namespace Tarn {
namespace {

using namespace std::chrono_literals;

/// Drives a pacer for `packets` packets, each wake-up `late` after it was due; returns duration and worst
/// burst.
struct Outcome {
  Nanoseconds duration{0};
  std::size_t worst_burst = 0;  ///< most bytes that left within 50 us
};

Outcome Drive(Pacer& pacer, std::size_t packet_size, std::size_t packets, Nanoseconds late) {
  Instant now{1s};
  const Instant start = now;
  std::deque<std::pair<Instant, std::size_t>> recent;
  std::size_t in_window = 0;
  Outcome run;
  while (packets != 0) {
    if (pacer.Due() > now) now = pacer.Due() + late;
    const std::size_t group = std::min(packets, pacer.GroupPackets(packet_size));
    pacer.Sent(now, group, group * packet_size);
    packets -= group;
    recent.emplace_back(now, group * packet_size);
    in_window += recent.back().second;
    while (recent.front().first + 50us < now) {
      in_window -= recent.front().second;
      recent.pop_front();
    }
    run.worst_burst = std::max(run.worst_burst, in_window);
  }
  run.duration = now - start;
  return run;
}

TEST(Pacer, KeepsTheRateAlthoughWakeUpsAreLate) {
  for (const Nanoseconds late : {Nanoseconds{0}, Nanoseconds{60us}}) {
    Pacer pacer;
    pacer.Configure(0ns, 125'000'000);
    const Outcome run = Drive(pacer, 1500, 10'000, late);
    EXPECT_NEAR(static_cast<double>(run.duration.count()), 120e6, 1e6) << late.count();
    EXPECT_LE(run.worst_burst, Pacer::kBurstBytes) << late.count();
  }
}

TEST(Pacer, CatchesUpOneGroupOnlyAfterAStall) {
  Pacer pacer;
  pacer.Configure(0ns, 125'000'000);
  Drive(pacer, 1500, 100, 0ns);
  const std::size_t group = pacer.GroupPackets(1500);
  pacer.Sent(Instant{100s}, group, group * 1500);
  EXPECT_EQ(pacer.Due(), Instant{100s}) << "one more group at once, then the rate";
  pacer.Sent(Instant{100s}, group, group * 1500);
  EXPECT_GT(pacer.Due(), Instant{100s});
}

TEST(Pacer, KeepsPacketDelaysOnAverageAndLongOnesOneByOne) {
  const struct {
    Nanoseconds delay;
    std::size_t group;
  } rows[] = {{10us, 10}, {99us, 1}, {1ms, 1}, {3s, 1}};
  for (const auto& row : rows) {
    Pacer pacer;
    pacer.Configure(row.delay, 0);
    EXPECT_EQ(pacer.GroupPackets(1500), row.group) << row.delay.count();
    const Outcome run = Drive(pacer, 1500, 1000, 20us);
    EXPECT_NEAR(static_cast<double>(run.duration.count()), 1000.0 * static_cast<double>(row.delay.count()),
                0.02 * 1000.0 * static_cast<double>(row.delay.count()))
        << row.delay.count();
  }
  Pacer slow;
  slow.Configure(1ms, 0);
  slow.Sent(Instant{1s}, 1, 1500);
  EXPECT_GE(slow.Due() - Instant{1s}, Nanoseconds{900us}) << "the first two packets must not leave together";
}

TEST(Pacer, ForgetsTheDebtOfOtherSettings) {
  Pacer pacer;
  pacer.Configure(4s, 0);
  pacer.Sent(Instant{10s}, 1, 1500);
  pacer.Configure(4s, 0);
  EXPECT_GT(pacer.Due(), Instant{13s});
  pacer.Configure(0ns, 125'000'000);
  EXPECT_LE(pacer.Due(), Instant{10s});
}

TEST(Pacer, TheStricterOfDelayAndRateHolds) {
  Pacer pacer;
  pacer.Configure(100us, 125'000'000);
  EXPECT_NEAR(static_cast<double>(Drive(pacer, 1500, 1000, 0ns).duration.count()), 100e6, 1e6);
  Pacer fresh;
  fresh.Configure(1us, 125'000'000);
  EXPECT_NEAR(static_cast<double>(Drive(fresh, 1500, 10'000, 0ns).duration.count()), 120e6, 1e6);
}

}  // namespace
}  // namespace Tarn
