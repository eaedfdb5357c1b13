#include "camera/engine/stream/pacing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "camera/engine/stream/rate_control.h"

namespace Tarn {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t kGigabit = 125'000'000;

/// A sender on a clock of its own, whose wake-ups come late.
/// \param apart  each group leaves later than the one before the last by at least this
/// \return nanoseconds that it takes
double Drive(Pacing& pacing, std::size_t packet, std::size_t packets, Nanoseconds late, Nanoseconds apart) {
  const Instant start{10s};
  Instant now = start, last{}, before_last{};
  pacing.Start(now);
  while (packets != 0) {
    if (pacing.Due() > now) now = pacing.Due() + late;
    EXPECT_GE(now - before_last, apart);
    before_last = std::exchange(last, now);
    const std::size_t group = std::min(packets, pacing.GroupPackets(packet));
    pacing.Sent(now, group, group * packet);
    packets -= group;
  }
  return static_cast<double>(Nanoseconds(now - start).count());
}

TEST(ClockPacing, KeepsTheStricterOfRateAndDelayInSmallGroupsThoughWakeUpsAreLate) {
  const struct {
    Nanoseconds delay;
    std::uint64_t rate;
    std::size_t group;
    Nanoseconds packet;  // takes up so long
  } rows[] = {{0ns, kGigabit, 33, 12us},
              {0ns, 10 * kGigabit, 333, 1200ns},
              {10us, 0, 20, 10us},
              {90us, 0, 2, 90us},
              {1ms, 0, 1, 1ms},
              {3s, 0, 1, 3s},
              {201us, kGigabit, 1, 201us},
              {1us, kGigabit, 33, 12us},
              {0ns, 1000, 1, 1500ms}};
  for (const auto& row : rows) {
    for (const Nanoseconds late : {0us, 40us}) {
      ClockPacing pacing;
      pacing.Set({row.delay, row.rate});
      EXPECT_EQ(pacing.GroupPackets(1500), row.group);
      const double expected = 10'000.0 * static_cast<double>(row.packet.count());
      EXPECT_NEAR(Drive(pacing, 1500, 10'000, late, 50us), expected, 0.005 * expected) << row.packet.count();
    }
  }
}

TEST(ClockPacing, MakesUpForAMillisecondOfAStallAndNotForIdleTime) {
  ClockPacing pacing;
  pacing.Set({0ns, kGigabit});
  const Nanoseconds group = 33 * 12us;
  const auto groups_until_even = [&](Instant now) {
    for (int groups = 0;; ++groups) {
      pacing.Sent(now, 33, 33 * 1500);
      if (pacing.Due() - now >= group || groups == 100) return groups;
      EXPECT_GE(pacing.Due() - now, group * 4 / 5 - (groups == 0 ? ClockPacing::kLate : 0ns)) << "too fast";
      now = pacing.Due();
    }
  };
  pacing.Start(Instant{10s});
  EXPECT_EQ(groups_until_even(Instant{10s}), 0);
  EXPECT_NEAR(groups_until_even(Instant{20s}), static_cast<double>(1ms / (group / 5)), 1) << "a stall";
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
  EXPECT_NEAR(Drive(pacing, 1500, 10'000, 0ns, 0ns), 120e6, 2e6);
}

/// A camera whose frames take a hundredth of a second at the limit, and have a client that misses packets.
class RateControlTest : public ::testing::Test {
 protected:
  static constexpr std::size_t kFrame = 1'000'000;

  RateControlTest() { control.SetLimit(kGigabit, true); }

  /// The rate after frames that came every `interval`.
  double Frames(int count, Nanoseconds interval, bool waited = false) {
    for (int i = 0; i < count; ++i) control.FrameAccepted(now += interval, kFrame, waited);
    return static_cast<double>(control.Rate());
  }
  /// The rate after a tenth of the frame was missed again and again.
  double Misses(int count, Nanoseconds interval) {
    for (int i = 0; i < count; ++i) control.PacketsMissed(now += interval, kFrame / 10);
    return static_cast<double>(control.Rate());
  }

  RateControl control;
  Instant now{10s};
};

TEST_F(RateControlTest, SpreadsFramesOverMostOfTheTimeUntilTheNext) {
  EXPECT_EQ(Frames(1, 20ms), kGigabit) << "nothing is known yet";
  EXPECT_NEAR(Frames(1, 20ms), 50e6 / RateControl::kSpread, 10);
  EXPECT_NEAR(Frames(10, 1s), 1e6 / 0.033 / RateControl::kSpread, 10) << "a trigger";
  EXPECT_EQ(Frames(10, 5ms), kGigabit);
  EXPECT_EQ(Frames(10, 20ms, true), kGigabit) << "the stream is the slower one";
  control.SetLimit(kGigabit, false);
  EXPECT_EQ(Frames(10, 20ms), kGigabit);
  control.SetLimit(0, true);
  EXPECT_EQ(Frames(0, 0s), 0);
}

TEST_F(RateControlTest, BacksOffForLossesOnceInAWhileRecoversAndKeepsTheFrameRate) {
  const double full = Frames(5, 50ms);
  control.PacketsMissed(now, kFrame / 100);
  EXPECT_EQ(Frames(0, 0s), full) << "few of many";
  EXPECT_NEAR(Misses(50, 1us), full * RateControl::kDecrease, 10) << "one loss in a window";
  const double least = 1e6 / 0.05 / RateControl::kLongestSpread;
  EXPECT_NEAR(Misses(100, 20ms), least, 10) << "frames would be late";
  EXPECT_NEAR(Frames(3, 50ms, true), least, 10) << "also when some were";
  EXPECT_EQ(Frames(60, 50ms), full);
}

TEST_F(RateControlTest, BacksOffFurtherForAProgramThatWaitsForTheStream) {
  Frames(8, 10us);  // until all places are taken
  EXPECT_EQ(Frames(10, 9ms, true), kGigabit);
  control.PacketsMissed(now, ~std::uint64_t{0});
  EXPECT_NEAR(Misses(0, 0s), kGigabit * RateControl::kDecrease, 10);
  EXPECT_NEAR(Misses(100, 20ms), kGigabit * RateControl::kLeast, 10);
  EXPECT_EQ(Frames(60, 9ms, true), kGigabit);
}

}  // namespace
}  // namespace Tarn
