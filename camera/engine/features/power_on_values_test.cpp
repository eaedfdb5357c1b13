#include "camera/engine/features/power_on_values.h"

#include <gtest/gtest.h>

#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

TEST(PowerOnValues, TheThroughputLimitFollowsTheLinkUntilAnotherIsChosen) {
  constexpr std::uint64_t kGigabit = 125'000'000;  // bytes per second
  SparseMemory memory;
  FillConstants(memory, true);
  const auto limit_on = [&](std::uint32_t mbit) {
    NetworkIdentity network;
    network.link_speed = mbit;
    network.max_packet_size = 1500;
    FillNetwork(memory, network, {true, 1500, false});
    return memory.Load64(ManufacturerRegister::kThroughputLimit);
  };
  EXPECT_EQ(limit_on(10'000), 9.5 * kGigabit);
  EXPECT_EQ(limit_on(0), kGigabit) << "a link that does not tell its speed";
  EXPECT_EQ(limit_on(100'000), 95 * kGigabit);
  memory.Store64(ManufacturerRegister::kThroughputLimit, 7);
  EXPECT_EQ(limit_on(1'000), 7);
}

}  // namespace
}  // namespace Tarn
