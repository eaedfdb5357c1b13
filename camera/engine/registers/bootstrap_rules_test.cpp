#include "camera/engine/registers/bootstrap_rules.h"

#include <gtest/gtest.h>

#include <array>

#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

constexpr BootstrapProfile kCamera{true, 9000};
constexpr BootstrapProfile kNoStream{false, 9000};
constexpr Endpoint kClient{0x0A000001, 50000};

using Addresses = std::initializer_list<std::uint32_t>;

BootstrapWrite Decide(std::uint32_t address, std::uint32_t value, bool streaming = false,
                      std::uint32_t old = 0) {
  return DecideBootstrapWrite(address, value, old, kCamera, {kClient, streaming});
}

TEST(BootstrapRegisters, ExistAsTheStandardHasThem) {
  // Every register of the standard that clients ask for.
  for (const std::uint32_t address : Addresses{
           0x0000, 0x0004, 0x0008, 0x000C, 0x0010, 0x0014, 0x0024, 0x0034, 0x0044, 0x0048, 0x0064, 0x0068,
           0x0088, 0x00A8, 0x00D4, 0x00D8, 0x00E8, 0x00F4, 0x0200, 0x03FC, 0x0400, 0x05FC, 0x0600, 0x0670,
           0x0900, 0x0904, 0x0908, 0x090C, 0x0910, 0x092C, 0x0930, 0x0934, 0x0938, 0x093C, 0x0940, 0x0944,
           0x0948, 0x094C, 0x0950, 0x0954, 0x0958, 0x095C, 0x0964, 0x0968, 0x0970, 0x0A00, 0x0A04, 0x0A14,
           0x0B00, 0x0B10, 0x0B14, 0x0B18, 0x0B1C, 0x9800, 0x9804, 0x9830, 0x9834}) {
    EXPECT_TRUE(BootstrapExists(address, kNoStream)) << std::hex << address;
    EXPECT_TRUE(BootstrapExists(address, kCamera)) << std::hex << address;
  }
  for (const std::uint32_t address :
       Addresses{0x0960, 0x0D00, 0x0D04, 0x0D08, 0x0D18, 0x0D1C, 0x0D20, 0x0D24}) {
    EXPECT_TRUE(BootstrapExists(address, kCamera)) << std::hex << address;
    EXPECT_FALSE(BootstrapExists(address, kNoStream)) << std::hex << address;
  }
  for (const std::uint32_t address : Addresses{0x0018, 0x00F8, 0x01FC, 0x0604, 0x064C, 0x065C, 0x066C, 0x096C,
                                               0x0D28, 0x0D40, 0x9000, 0x9808, 0x9840, 0x9FFC}) {
    EXPECT_FALSE(BootstrapExists(address, kCamera)) << std::hex << address;
  }
  EXPECT_TRUE(BootstrapReadableInBlock(0x0018, kCamera));  // a hole of the discovery block
  EXPECT_FALSE(BootstrapReadableInBlock(0x00F8, kCamera));
}

TEST(BootstrapRegisters, TakeOnlyWhatTheDeviceCanDo) {
  const struct {
    std::uint32_t address;
    std::uint32_t value;
    WireStatus status;
    std::uint32_t stored;
  } rows[] = {
      {Bootstrap::kVersion, 1, WireStatus::WriteProtect, 0},
      {Bootstrap::kModelName, 1, WireStatus::WriteProtect, 0},
      {Bootstrap::kStreamSourcePort, 1, WireStatus::WriteProtect, 0},
      {Bootstrap::kMessageSourcePort, 1, WireStatus::WriteProtect, 0},
      {Bootstrap::kMessagePort, 5000, WireStatus::Success, 5000},
      {Bootstrap::kMessagePort, 0x0001'0000 | 5000, WireStatus::InvalidParameter, 0},
      {Bootstrap::kMessageDestination, kClient.address, WireStatus::Success, kClient.address},
      {Bootstrap::kMessageDestination, kClient.address + 1, WireStatus::InvalidParameter, 0},
      {Bootstrap::kMessageDestination, 0xEF00'0001, WireStatus::Success, 0xEF00'0001},
      {0x0018, 1, WireStatus::InvalidAddress, 0},
      {Bootstrap::kInterfaceConfiguration, 0xFFFFFFFF, WireStatus::Success, 0},
      {Bootstrap::kLinkConfiguration, 3, WireStatus::Success, 0},
      {Bootstrap::kHeartbeatTimeout, 0, WireStatus::Success, 500},
      {Bootstrap::kHeartbeatTimeout, 0xFFFFFFFF, WireStatus::Success, 0xFFFFFFFF},
      {Bootstrap::kControlConfiguration, 0xFFFFFFFF, WireStatus::Success, 0x0004'000F},
      {Bootstrap::kDiscoveryDelay, 0xFFFF'0123, WireStatus::Success, 0x0123},
      {Bootstrap::kDiscoveryDelay, 1001, WireStatus::Success, 1000},
      {Bootstrap::kSwitchoverKey, 0xFFFF'1234, WireStatus::Success, 0x1234},
      {Bootstrap::kActionSignalCount, 1, WireStatus::WriteProtect, 0},
      {Bootstrap::kActionGroupMasks, 0xFFFFFFFF, WireStatus::Success, 0xFFFFFFFF},
      {Bootstrap::kTimestampControl, 0xFFFFFFFF, WireStatus::Success, 3},
      {Bootstrap::kStreamConfiguration, 0xFFFFFFFF, WireStatus::Success, 0x40000000},
      {Bootstrap::kStreamPort, 0x8000C350, WireStatus::Success, 0xC350},  // the direction is fixed
      {Bootstrap::kStreamPort, 0x0001C350, WireStatus::InvalidParameter, 0},
      {Bootstrap::kStreamDestination, kClient.address, WireStatus::Success, kClient.address},
      {Bootstrap::kStreamDestination, 0xEF000001, WireStatus::Success, 0xEF000001},
      {Bootstrap::kStreamDestination, 0, WireStatus::Success, 0},
      {Bootstrap::kStreamDestination, 0x0A000002, WireStatus::InvalidParameter, 0},
      {Bootstrap::kStreamDestination, 0xFFFFFFFF, WireStatus::InvalidParameter, 0},
  };
  for (const auto& row : rows) {
    const BootstrapWrite write = Decide(row.address, row.value);
    EXPECT_EQ(write.status, row.status) << std::hex << row.address << ' ' << row.value;
    if (row.status == WireStatus::Success) {
      EXPECT_EQ(write.value, row.stored) << std::hex << row.address;
    }
  }
}

TEST(BootstrapRegisters, TakeAResendDestinationWherePacketsAreResent) {
  const std::uint32_t bit = StreamChannelBits::ResendDestination::kMask;
  for (const bool resends : {false, true}) {
    const BootstrapProfile profile{true, 9000, resends};
    const BootstrapWrite write = DecideBootstrapWrite(Bootstrap::kStreamChannelConfiguration, 0xFFFFFFFF, 0,
                                                      profile, {kClient, false});
    EXPECT_EQ(write.value, resends ? bit : 0) << resends;
  }
}

TEST(BootstrapRegisters, ShowNoKeys) {
  std::array<std::uint8_t, 12> bytes;
  bytes.fill(0xAB);
  BlankWriteOnly(Bootstrap::kActionDeviceKey - 4, bytes);
  EXPECT_EQ(LoadBe<std::uint32_t>(&bytes[0]), 0xABABABABu);
  EXPECT_EQ(LoadBe<std::uint32_t>(&bytes[4]), 0u);
  EXPECT_EQ(LoadBe<std::uint32_t>(&bytes[8]), 0xABABABABu);
}

TEST(PacketSize, IsRoundedIntoWhatTheInterfaceCarries) {
  const struct {
    std::uint32_t written;
    std::uint32_t stored;
  } rows[] = {{0x000005DC, 1500}, {0x800005DC, 0x800005DC}, {0x400005DF, 0x400005DC},
              {0x800005DF, 1500},  // no test packet of a size that was not asked for
              {0, 220},           {0x8000FFFF, 9000},       {0x200005DC, 1500}};
  for (const auto& row : rows) {
    EXPECT_EQ(Decide(Bootstrap::kStreamPacketSize, row.written).value, row.stored) << std::hex << row.written;
  }
  EXPECT_EQ(UsablePacketSize(1500, {true, 1499}), 1496u);
  EXPECT_EQ(UsablePacketSize(1500, {true, 68}), 220u);
}

TEST(BootstrapRegisters, OfTheStreamStandStillWhileItRuns) {
  for (const std::uint32_t address :
       {Bootstrap::kStreamPacketSize, Bootstrap::kStreamDestination, Bootstrap::kStreamConfiguration}) {
    EXPECT_EQ(Decide(address, 0, true).status, WireStatus::Busy) << std::hex << address;
  }
  for (const std::uint32_t address : {Bootstrap::kStreamPort, Bootstrap::kStreamPacketDelay}) {
    EXPECT_EQ(Decide(address, 0, true).status, WireStatus::Success) << std::hex << address;
  }
}

}  // namespace
}  // namespace Tarn
