#include "camera/engine/registers/bootstrap_rules.h"

#include <gtest/gtest.h>

#include <array>

#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kAll = 0xFFFF'FFFF;
constexpr BootstrapProfile kCamera{true, 9000};
constexpr BootstrapProfile kNoStream{false, 9000};
constexpr Endpoint kClient{0x0A000001, 50000};

BootstrapWrite Decide(std::uint32_t address, std::uint32_t value, const BootstrapProfile& profile = kCamera,
                      bool streaming = false) {
  return DecideBootstrapWrite(address, value, 0, profile, {kClient, streaming});
}

TEST(BootstrapRegisters, ExistAsTheStandardHasThem) {
  const struct {
    std::vector<std::uint32_t> addresses;
    bool in_camera, without_stream;
  } rows[] = {
      {{0x0000, 0x00A8, 0x00D4, 0x00F4, 0x05FC, 0x0600, 0x0670, 0x0970, 0x0A14, 0x9800, 0x9834}, true, true},
      {{0x0960, 0x0D00, 0x0D04, 0x0D08, 0x0D18, 0x0D1C, 0x0D20, 0x0D24}, true, false},
      {{0x0018, 0x00F8, 0x01FC, 0x0604, 0x064C, 0x065C, 0x066C, 0x096C}, false, false},
      {{0x0D28, 0x0D40, 0x9000, 0x9808, 0x9840, 0x9FFC}, false, false},
  };
  for (const auto& row : rows) {
    for (const std::uint32_t address : row.addresses) {
      EXPECT_EQ(BootstrapExists(address, kCamera), row.in_camera) << std::hex << address;
      EXPECT_EQ(BootstrapExists(address, kNoStream), row.without_stream) << std::hex << address;
    }
  }
  EXPECT_TRUE(BootstrapReadableInBlock(0x0018, kCamera));  // a hole of the discovery block
  EXPECT_FALSE(BootstrapReadableInBlock(0x00F8, kCamera));
}

TEST(BootstrapRegisters, TakeOnlyWhatTheDeviceCanDo) {
  constexpr auto kTaken = WireStatus::Success;
  constexpr auto kInvalid = WireStatus::InvalidParameter;
  const struct {
    std::uint32_t address, value;
    WireStatus status;
    std::uint32_t stored;
  } rows[] = {
      {0x0018, 1, WireStatus::InvalidAddress, 0},
      {Bootstrap::kModelName, 1, WireStatus::WriteProtect, 0},
      {Bootstrap::kStreamSourcePort, 1, WireStatus::WriteProtect, 0},
      {Bootstrap::kMessagePort, 5000, kTaken, 5000},
      {Bootstrap::kMessagePort, 0x0001'0000 | 5000, kInvalid, 0},
      {Bootstrap::kMessageDestination, kClient.address, kTaken, kClient.address},
      {Bootstrap::kMessageDestination, kClient.address + 1, kInvalid, 0},
      {Bootstrap::kInterfaceConfiguration, kAll, kTaken, 0},
      {Bootstrap::kLinkConfiguration, 3, kTaken, 0},
      {Bootstrap::kHeartbeatTimeout, 0, kTaken, 500},
      {Bootstrap::kHeartbeatTimeout, kAll, kTaken, kAll},
      {Bootstrap::kControlConfiguration, kAll, kTaken, 0x0004'000F},
      {Bootstrap::kDiscoveryDelay, 0xFFFF'0123, kTaken, 0x0123},
      {Bootstrap::kDiscoveryDelay, 1001, kTaken, 1000},
      {Bootstrap::kSwitchoverKey, 0xFFFF'1234, kTaken, 0x1234},
      {Bootstrap::kActionGroupMasks, kAll, kTaken, kAll},
      {Bootstrap::kTimestampControl, kAll, kTaken, 3},
      {Bootstrap::kStreamConfiguration, kAll, kTaken, 0x4000'0000},
      {Bootstrap::kStreamPort, 0x8000'C350, kTaken, 0xC350},  // the direction is fixed
      {Bootstrap::kStreamPort, 0x0001'C350, kInvalid, 0},
      {Bootstrap::kStreamDestination, kClient.address, kTaken, kClient.address},
      {Bootstrap::kStreamDestination, 0xEF00'0001, kTaken, 0xEF00'0001},
      {Bootstrap::kStreamDestination, 0xE000'0001, kInvalid, 0},
      {Bootstrap::kStreamDestination, 0, kTaken, 0},
      {Bootstrap::kStreamDestination, kAll, kInvalid, 0},
      {Bootstrap::kStreamPacketSize, 1500, kTaken, 1500},
      {Bootstrap::kStreamPacketSize, 0x8000'05DC, kTaken, 0x8000'05DC},
      {Bootstrap::kStreamPacketSize, 0x4000'05DF, kTaken, 0x4000'05DC},
      {Bootstrap::kStreamPacketSize, 0x8000'05DF, kTaken, 1500},  // no test packet of another size
      {Bootstrap::kStreamPacketSize, 0, kTaken, 220},
      {Bootstrap::kStreamPacketSize, 0x8000'FFFF, kTaken, 9000},
      {Bootstrap::kStreamPacketSize, 0x2000'05DC, kTaken, 1500},
  };
  for (const auto& row : rows) {
    const BootstrapWrite write = Decide(row.address, row.value);
    EXPECT_EQ(write.status, row.status) << std::hex << row.address << ' ' << row.value;
    EXPECT_TRUE(row.status != kTaken || write.value == row.stored)
        << std::hex << row.address << ' ' << row.value;
  }
  EXPECT_EQ(Decide(Bootstrap::kStreamChannelConfiguration, kAll).value, 0u);
  EXPECT_EQ(Decide(Bootstrap::kStreamChannelConfiguration, kAll, {true, 9000, true}).value,
            StreamChannelBits::ResendDestination::kMask);
  EXPECT_EQ(UsablePacketSize(1500, {true, 1499}), 1496u);
  EXPECT_EQ(UsablePacketSize(1500, {true, 68}), 220u);
}

TEST(BootstrapRegisters, ShowNoKeys) {
  std::array<std::uint8_t, 12> bytes;
  bytes.fill(0xAB);
  BlankWriteOnly(Bootstrap::kActionDeviceKey - 4, bytes);
  EXPECT_EQ(LoadBe<std::uint32_t>(&bytes[0]), 0xABABABABu);
  EXPECT_EQ(LoadBe<std::uint32_t>(&bytes[4]), 0u);
  EXPECT_EQ(LoadBe<std::uint32_t>(&bytes[8]), 0xABABABABu);
}

TEST(BootstrapRegisters, OfTheStreamStandStillWhileItRuns) {
  for (const std::uint32_t address :
       {Bootstrap::kStreamPacketSize, Bootstrap::kStreamDestination, Bootstrap::kStreamConfiguration}) {
    EXPECT_EQ(Decide(address, 0, kCamera, true).status, WireStatus::Busy) << std::hex << address;
  }
  for (const std::uint32_t address : {Bootstrap::kStreamPort, Bootstrap::kStreamPacketDelay}) {
    EXPECT_EQ(Decide(address, 0, kCamera, true).status, WireStatus::Success) << std::hex << address;
  }
}

}  // namespace
}  // namespace Tarn
