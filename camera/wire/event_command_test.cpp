#include "camera/wire/event_command.h"

#include <gtest/gtest.h>

#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Encoded(const EventCommand& command) {
  Bytes bytes(kMaxControlDatagram);
  ByteWriter out(bytes);
  command.Encode(out);
  bytes.resize(out.Size());
  return bytes;
}

TEST(EventCommandBytes, AreTheStandards) {
  const Bytes data = Hex("CAFE 01");
  const EventItem frame{0x9001, 0, 7, 0x1122'3344'5566'7788};
  const EventItem plain{0x9010, EventItem::kNoChannel, 0, 1};
  const EventItem late{0x9001, 0, 0x1'0000'0007, 2};
  const struct {
    EventCommand command;
    const char* bytes;
  } rows[] = {
      {{frame, {}, 0x1234, false, true}, "42 01 00C0 0010 1234 0000 9001 0000 0007 1122334455667788"},
      {{frame, {}, 0x1234, true, true},
       "42 11 00C0 0018 1234 0018 9001 0000 0000 0000000000000007 1122334455667788"},
      {{late, {}, 1, false, false}, "42 00 00C0 0010 0001 0000 9001 0000 0007 0000000000000002"},
      {{plain, data, 2, false, false}, "42 00 00C2 0013 0002 0000 9010 FFFF 0000 0000000000000001 CAFE01"},
      {{plain, data, 3, true, true},
       "42 11 00C2 001B 0003 001B 9010 FFFF 0000 0000000000000000 0000000000000001 CAFE01"},
  };
  for (const auto& row : rows) EXPECT_EQ(Encoded(row.command), Hex(row.bytes)) << row.bytes;
}

TEST(EventCommandBytes, LeaveOutDataThatDoNotFitADatagram) {
  for (const bool extended : {false, true}) {
    const std::size_t most = kMaxControlPayload - EventItem::Size(extended);
    const Bytes data(most + 1, 0xAB);
    const EventCommand fits{{}, ByteView(data).first(most), 1, extended, false};
    EXPECT_EQ(fits.Code(), Command::EventData);
    EXPECT_EQ(Encoded(fits).size(), CommandHeader::kSize + kMaxControlPayload);
    const EventCommand too_long{{}, data, 1, extended, false};
    EXPECT_EQ(too_long.Code(), Command::Event);
    EXPECT_EQ(Encoded(too_long).size(), CommandHeader::kSize + EventItem::Size(extended));
  }
}

}  // namespace
}  // namespace Tarn
