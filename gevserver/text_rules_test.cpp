#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "core/fake_library_test.h"
#include "core/size_and_point.h"
#include "gevserver/address_text.h"
#include "gevserver/buffer_description.h"
#include "gevserver/library/tr_codes.h"
#include "gevserver/network_interface.h"
#include "gevserver/node_name.h"
#include "gevserver/pixel_format.h"

namespace Tarn::GevServer {
namespace {

// Text of the runtime error that `action` throws.
template <class Action>
std::string Refusal(Action&& action) {
  try {
    action();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "accepted";
}

TEST(LooseAddress, CountsWhateverItIsGiven) {
  const std::pair<const char*, std::uint32_t> rows[] = {
      {"192.168.0.1", 0xC0A80001},
      {"127.0.0.1", 0x7F000001},
      {"255.255.255.255", 0xFFFFFFFF},
      {"", 0},
      {"7", 7},
      {"0.0.0.300", 300},              // spills into the next group
      {"0.0.0.1234", 234 + 1},         // a fourth digit counts as units
      {"0.0.0.1a", 10 + ('a' - '0')},  // any character is a digit
      // The character in front of a dot is the units digit, a dot too, and that is two below zero.
      {"1..2", 2 - 2 * 256 + 10 * 256},
      {".5", 5},
  };
  for (const auto& [text, number] : rows) EXPECT_EQ(LooseAddress(text), number) << text;
}

TEST(StrictAddress, TakesFourGroupsAndNothingElse) {
  EXPECT_EQ(StrictAddress("192.168.0.1"), 0xC0A80001);
  EXPECT_EQ(StrictAddress("010.0.0.255"), 0x0A0000FF);
  for (const char* text : {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.4 ", " 1.2.3.4", "1.2.3.-4",
                           "1..2.3", "0001.2.3.4", "a.b.c.d"}) {
    EXPECT_FALSE(StrictAddress(text)) << text;
  }
}

TEST(LogicalNetworkInterface, TextAndNumberAreOneAddress) {
  LogicalNetworkInterface iface("192.168.0.1", "255.255.255.0");
  EXPECT_EQ(iface.IpAddressNumber(), 0xC0A80001);
  iface.SetIpAddressNumber(0x7F000001);
  EXPECT_EQ(iface.IpAddress(), "127.0.0.1");
  iface.SetIpAddress("somewhere");
  EXPECT_EQ(iface.IpAddress(), "somewhere");
  EXPECT_EQ(iface.IpAddressNumber(), 0U);
}

TEST(NetworkInterfaces, AreListedInOrderOrNotAtAll) {
  auto& library = Testing::FakeLibrary::Instance();
  library.Reset();
  const auto interfaces = AllNetworkInterfaces();
  ASSERT_EQ(interfaces.size(), 2U);
  EXPECT_EQ(interfaces[1].IpAddress(), "192.168.0.1");
  EXPECT_EQ(interfaces[1].Ipv4Mask(), "255.255.255.0");
  const std::pair<const char*, const char*> failures[] = {
      {"CreateInterfaceList", "Failed to create interface list"},
      {"ILIPv4Address", "error retrieving IP"},
      {"ILIPv4SubnetMask", "error retrieving subnet mask"}};
  for (const auto& [function, text] : failures) {
    library.Reset();
    library.Fail(function, TR_FAILURE(1));
    EXPECT_EQ(Refusal([] { AllNetworkInterfaces(); }), text);
    EXPECT_EQ(library.LiveHandles(), 0U) << "the list is given back";
  }
}

TEST(NodeName, SplitsByTheLooseRules) {
  struct Row {
    const char* name;
    std::int32_t name_space;
    const char* name_only;
  };
  const Row rows[] = {{"Std::Width", GS_NAMESPACE_STANDARD, "Width"},
                      {"Width", GS_NAMESPACE_CUSTOM, "Width"},
                      {"StdWidth", GS_NAMESPACE_CUSTOM, "StdWidth"},
                      {"Cust::MyStdGain", GS_NAMESPACE_STANDARD, "MyStdGain"},
                      {"Priv::Offset", GS_NAMESPACE_PRIVATE, "Offset"},
                      {"Priv::Std", GS_NAMESPACE_STANDARD, "Std"},
                      {"Other::X", GS_NAMESPACE_CUSTOM, "X"},
                      {"A::B::C", GS_NAMESPACE_CUSTOM, "B::C"}};
  for (const Row& row : rows) {
    EXPECT_EQ(NameSpaceOf(row.name), row.name_space) << row.name;
    EXPECT_EQ(NameOnly(row.name), row.name_only) << row.name;
  }
  for (const auto operation :
       {+[] { NameSpaceOf(""); }, +[] { NameOnly(""); }, +[] { NameForCreation(""); }}) {
    EXPECT_EQ(Refusal(operation), "Node name must not be empty");
  }
}

TEST(NodeName, CreationTakesAPrefixOrANamespaceButNotBoth) {
  EXPECT_EQ(ResolveCreationName("Std::Width", {}).name_space, GS_NAMESPACE_STANDARD);
  EXPECT_EQ(ResolveCreationName("Std::Width", {}).name, "Width");
  EXPECT_EQ(ResolveCreationName("Width", {}).name_space, GS_NAMESPACE_CUSTOM);
  EXPECT_EQ(ResolveCreationName("Width", GS_NAMESPACE_PRIVATE).name_space, GS_NAMESPACE_PRIVATE);
  EXPECT_EQ(Refusal([] { ResolveCreationName("Std::Width", GS_NAMESPACE_CUSTOM); }),
            "No namespace prefix allowed");
  EXPECT_EQ(Refusal([] { ResolveCreationName("A::B::C", {}); }), "No namespace prefix allowed");
  EXPECT_EQ(Refusal([] { ResolveCreationName("Std::", {}); }), "Node name must not be empty");
}

TEST(PixelFormat, FollowsColourModelAndDataType) {
  struct Row {
    ColorModel model;
    std::uint32_t type;
    std::uint32_t format;
  };
  const Row rows[] = {{ColorModel::Mono, 0x008, 0x01080001},
                      {ColorModel::MonoGuess, 0x001, 0x01080001},
                      {ColorModel::Mono, 0x009, 0x01100003},
                      {ColorModel::Mono, 0x00C, 0x01100005},
                      {ColorModel::Mono, 0x00D, 0x01100025},
                      {ColorModel::Mono, 0x010, 0x01100007},
                      {ColorModel::Mono, 0x108, 0x01080002},
                      {ColorModel::Mono, 0x808, 0x01080002},
                      {ColorModel::Mono, 0x10C, 0},
                      {ColorModel::Mono, 0x011, 0},
                      {ColorModel::Mono, 0x208, 0},
                      {ColorModel::RGB, 0x008, 0x02180014},
                      {ColorModel::RGBGuess, 0x00A, 0x02300018},
                      {ColorModel::RGB, 0x00B, 0x0230001A},
                      {ColorModel::RGB, 0x00E, 0x0230005E},
                      {ColorModel::RGB, 0x010, 0x02300033},
                      {ColorModel::RGB, 0x108, 0},
                      {ColorModel::YUV, 0x008, 0x02180020},
                      {ColorModel::YUV, 0x007, 0},
                      {ColorModel::YCbCr, 0x008, 0x0218005B},
                      {ColorModel::HSV, 0x008, 0},
                      {ColorModel::Unknown, 0x008, 0},
                      {ColorModel{6}, 0x008, 0},
                      {ColorModel{-3}, 0x008, 0}};
  for (const Row& row : rows) {
    EXPECT_EQ(PfncFormatOf(static_cast<std::int64_t>(row.model), DataType(row.type)), row.format)
        << static_cast<int>(row.model) << ", " << std::hex << row.type;
  }
}

TEST(BufferDescription, RefusesInOrderAndKeepsWhatItHad) {
  EXPECT_EQ(Refusal([] { ChunkImageBufferDescription(0, 0, 0, 0); }), "Width must be larger or equal to 1");
  EXPECT_EQ(Refusal([] { ChunkImageBufferDescription(1, 0, 0, 0); }), "Height must be larger or equal to 1");
  EXPECT_EQ(Refusal([] { ChunkImageBufferDescription(1, 1, 0, 0); }), "Invalid pixel format");
  EXPECT_EQ(Refusal([] { ChunkImageBufferDescription(1, 1, 1, 3); }),
            "Total payload size must at least be large enough to hold a chunk");
  ChunkImageBufferDescription description(640, 480, 1, 4);
  EXPECT_EQ(Refusal([&] { description.SetLayoutId(-1); }), "Layout identifier must be larger or equal to 0");
  EXPECT_EQ(Refusal([&] { description.SetOffset(1, -1); }), "Y must be larger or equal to 0");
  EXPECT_EQ(Refusal([&] { description.SetOffset(-1, 1); }), "X must be larger or equal to 0");
  EXPECT_EQ(Refusal([&] { description.SetSize(1, 0); }), "Height must be larger or equal to 1");
  EXPECT_EQ(description.OffsetX(), 0);
  EXPECT_EQ(description.Width(), 640);
}

TEST(RoundToInt32, RoundsHalvesAwayFromZeroAndRefusesWhatDoesNotFit) {
  EXPECT_EQ(RoundToInt32(639.5), 640);
  EXPECT_EQ(RoundToInt32(479.4), 479);
  EXPECT_EQ(RoundToInt32(-0.5), -1);
  EXPECT_EQ(RoundToInt32(2147483647.4), 2147483647);
  for (const double value : {2147483647.5, -2147483648.5, std::numeric_limits<double>::quiet_NaN(),
                             std::numeric_limits<double>::infinity()}) {
    EXPECT_THROW(RoundToInt32(value), std::overflow_error) << value;
  }
}

}  // namespace
}  // namespace Tarn::GevServer
