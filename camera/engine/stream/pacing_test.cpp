#include "camera/engine/stream/pacing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <utility>

#include "camera/engine/stream/rate_control.h"

namespace Tarn {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t kGigabit = 125'000'000;

struct Outcome {
  Nanoseconds duration{0};
  std::size_t worst_burst = 0;  ///< bytes within 50 us
};

/// A sender on a clock of its own, whose wake-ups come late.
Outcome Drive(Pacing& pacing, std::size_t packet, std::size_t packets, Nanoseconds late) {
  Outcome run;
  const Instant start{10s};
  Instant now = start;
  pacing.Start(now);
  std::deque<std::pair<Instant, std::size_t>> recent;
  std::size_t in_window = 0;
  while (packets != 0) {
    if (pacing.Due() > now) now = pacing.Due() + late;
    const std::size_t group = std::min(packets, pacing.GroupPackets(packet));
    pacing.Sent(now, group, group * packet);
    packets -= group;
    recent.emplace_back(now, group * packet);
    in_window += recent.back().second;
    for (; recent.front().first + 50us < now; recent.pop_front()) in_window -= recent.front().second;
    run.worst_burst = std::max(run.worst_burst, in_window);
  }
  run.duration = now - start;
  return run;
}

TEST(ClockPacing, KeepsTheStricterOfRateAndDelayInSmallGroupsThoughWakeUpsAreLate) {
  const struct {
    Pace pace;
    std::size_t group;
    Nanoseconds packet;  // takes up so long
  } rows[] = {{{0ns, kGigabit}, 33, 12us},
              {{0ns, 10 * kGigabit}, 333, 1200ns},
              {{10us, 0}, 20, 10us},
              {{90us, 0}, 2, 90us},
              {{1ms, 0}, 1, 1ms},
              {{3s, 0}, 1, 3s},
              {{201us, kGigabit}, 1, 201us},
              {{1us, kGigabit}, 33, 12us},
              {{0ns, 1000}, 1, 1500ms}};
  for (const auto& row : rows) {
    for (const Nanoseconds late : {Nanoseconds{0}, Nanoseconds{40us}}) {
      ClockPacing pacing;
      pacing.Set(row.pace);
      EXPECT_EQ(pacing.GroupPackets(1500), row.group);
      const Outcome run = Drive(pacing, 1500, 10'000, late);
      const double expected = 10'000.0 * static_cast<double>(row.packet.count());
      EXPECT_NEAR(static_cast<double>(run.duration.count()), expected, 0.005 * expected)
          << row.packet.count();
      EXPECT_LE(run.worst_burst, 2 * row.group * 1500) << row.packet.count();
    }
  }
}

TEST(ClockPacing, MakesUpForAMillisecondOfAStallAndNotForIdleTime) {
  ClockPacing pacing;
  pacing.Set({0ns, kGigabit});
  const Nanoseconds group = 33 * 12us;
  const auto groups_until_even = [&](Instant now) {
    int groups = 0;
    for (; groups < 100; ++groups) {
      pacing.Sent(now, 33, 33 * 1500);
      if (pacing.Due() - now >= group) break;
      EXPECT_GE(pacing.Due() - now, group * 4 / 5 - (groups == 0 ? ClockPacing::kLate : Nanoseconds{0}))
          << "never faster than 1.25 times the rate";
      now = pacing.Due();
    }
    return groups;
  };
  pacing.Start(Instant{10s});
  EXPECT_EQ(groups_until_even(Instant{10s}), 0);
  const int made_up = groups_until_even(Instant{20s});  // a stall
  EXPECT_NEAR(made_up, static_cast<double>(1ms / (group / 5)), 1);
  pacing.Start(Instant{30s});
  EXPECT_EQ(groups_until_even(Instant{30s}), 0) << "nothing was to be sent";
}

TEST(ClockPacing, ANewPaceHoldsFromTheNextGroupOn) {
  ClockPacing pacing;
  pacing.Set({4s, 0});
  pacing.Start(Instant{10s});
  pacing.Sent(Instant{10s}, 1, 1500);
  EXPECT_EQ(pacing.Due(), Instant{14s});
  pacing.Set({0ns, kGigabit});
  EXPECT_EQ(pacing.Due(), Instant{10s} + 12us);
}

TEST(KernelPacing, HandsOverAMillisecondAheadAndTellsTheRate) {
  std::uint64_t told = 0;
  KernelPacing pacing([&](std::uint64_t rate) { told = rate; });
  pacing.Set({0ns, kGigabit});
  EXPECT_EQ(told, kGigabit);
  const Outcome run = Drive(pacing, 1500, 10'000, 0ns);
  EXPECT_NEAR(static_cast<double>(run.duration.count()), 120e6, 2e6);
}

/// A camera whose frames take a tenth of a second at the limit, sent every `interval`.
class RateControlTest : public ::testing::Test {
 protected:
  static constexpr std::size_t kFrame = 1'000'000;

  void Frames(int count, Nanoseconds interval, bool waited = false) {
    for (int i = 0; i < count; ++i) control.FrameAccepted(now += interval, kFrame, waited);
  }

  /// A tenth of the frame.
  void Miss(int times, Nanoseconds interval) {
    for (int i = 0; i < times; ++i) control.PacketsMissed(now += interval, kFrame / 10);
  }

  double Rate() const { return static_cast<double>(control.Rate()); }

  RateControl control;
  Instant now{10s};
};

TEST_F(RateControlTest, SpreadsFramesOverMostOfTheTimeUntilTheNext) {
  control.SetLimit(kGigabit, true);
  Frames(1, 20ms);
  EXPECT_EQ(control.Rate(), kGigabit) << "nothing is known yet";
  Frames(1, 20ms);
  EXPECT_NEAR(Rate(), 50e6 / RateControl::kSpread, 10);
  Frames(10, 1s);
  EXPECT_NEAR(Rate(), 1e6 / 0.033 / RateControl::kSpread, 10) << "a trigger";
  Frames(10, 5ms);
  EXPECT_EQ(control.Rate(), kGigabit);
  Frames(10, 20ms, true);
  EXPECT_EQ(control.Rate(), kGigabit) << "the stream is the slower one";
  control.SetLimit(kGigabit, false);
  Frames(10, 20ms);
  EXPECT_EQ(control.Rate(), kGigabit);
  control.SetLimit(0, true);
  EXPECT_EQ(control.Rate(), 0u);
}

TEST_F(RateControlTest, BacksOffForLossesOnceInAWhileRecoversAndKeepsTheFrameRate) {
  control.SetLimit(kGigabit, true);
  Frames(5, 50ms);
  const double full = Rate();
  control.PacketsMissed(now, kFrame / 100);
  EXPECT_EQ(Rate(), full) << "few of many";
  Miss(50, 1us);
  EXPECT_NEAR(Rate(), full * RateControl::kDecrease, 10) << "one loss in a window";
  Miss(100, 20ms);
  const double least = 1e6 / 0.05 / RateControl::kLongestSpread;
  EXPECT_NEAR(Rate(), least, 10) << "frames would be late";
  Frames(3, 50ms, true);
  EXPECT_NEAR(Rate(), least, 10) << "also when some were";
  Frames(60, 50ms);
  EXPECT_EQ(Rate(), full);
}

TEST_F(RateControlTest, BacksOffFurtherForAProgramThatWaitsForTheStream) {
  control.SetLimit(kGigabit, true);
  Frames(8, 10us);  // until all places are taken
  Frames(10, 9ms, true);
  EXPECT_EQ(control.Rate(), kGigabit);
  control.PacketsMissed(now, ~std::uint64_t{0});
  EXPECT_NEAR(Rate(), kGigabit * RateControl::kDecrease, 10);
  Miss(100, 20ms);
  EXPECT_NEAR(Rate(), kGigabit * RateControl::kLeast, 10);
  Frames(60, 9ms, true);
  EXPECT_EQ(control.Rate(), kGigabit);
}

}  // namespace
}  // namespace Tarn
