#include "camera/engine/control/event_sender.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

using std::chrono::milliseconds;
using Bytes = std::vector<std::uint8_t>;

constexpr Endpoint kClient{0x0A00'0001, 5000};
constexpr Instant kStart{};

/// What a test looks at of a command.
struct Seen {
  std::uint8_t flags;
  std::uint16_t id;
  std::uint16_t number;
  friend bool operator==(const Seen&, const Seen&) = default;
};

std::ostream& operator<<(std::ostream& out, const Seen& seen) {
  return out << "flags " << int{seen.flags} << " id " << seen.id << " number " << seen.number;
}

class EventSenderTest : public ::testing::Test {
 protected:
  EventSenderTest() { sender_->Configure({kClient, milliseconds(100), 2, false}); }

  void Push(std::uint16_t number) { sender_->Push({number, 0, 1, 0}, {}); }

  /// Everything that is to be sent at an instant.
  std::vector<Seen> SentAt(milliseconds time) {
    std::vector<Seen> seen;
    for (ByteView bytes = sender_->Next(kStart + time); !bytes.empty();
         bytes = sender_->Next(kStart + time)) {
      ByteReader in(bytes);
      const auto header = CommandHeader::Decode(in);
      EXPECT_TRUE(header && header->length == in.Rest().size());
      in.Skip(2);
      seen.push_back({header->flags, header->request_id, in.Take<std::uint16_t>()});
    }
    return seen;
  }

  std::vector<Seen> Acknowledged(const char* ack, milliseconds time, Endpoint source = kClient) {
    sender_->Receive(Hex(ack), source);
    return SentAt(time);
  }

  using List = std::vector<Seen>;
  std::unique_ptr<EventSender> sender_ = std::make_unique<EventSender>();
};

TEST_F(EventSenderTest, RepeatsOneCommandUntilItGivesUp) {
  EXPECT_EQ(sender_->Deadline(), Instant::max());
  Push(1);
  Push(2);
  EXPECT_EQ(SentAt(milliseconds(0)), (List{{1, 1, 1}}));
  EXPECT_EQ(sender_->Deadline(), kStart + milliseconds(100));
  EXPECT_EQ(SentAt(milliseconds(99)), List{});
  EXPECT_EQ(SentAt(milliseconds(100)), (List{{1, 1, 1}}));
  EXPECT_EQ(SentAt(milliseconds(250)), (List{{1, 1, 1}}));  // a late repeat delays the next
  EXPECT_EQ(sender_->Deadline(), kStart + milliseconds(350));
  EXPECT_EQ(SentAt(milliseconds(350)), (List{{1, 2, 2}}));
  EXPECT_EQ(sender_->Counters().sent, 2u);
  EXPECT_EQ(sender_->Counters().repeated, 2u);
  EXPECT_EQ(sender_->Counters().lost, 1u);
}

TEST_F(EventSenderTest, WaitsNoLongerThanTheLatestTimeout) {
  sender_->Configure({kClient, milliseconds(0xFFFF'FFFF), 0xFFFF'FFFF, false});
  Push(1);
  EXPECT_EQ(SentAt(milliseconds(0)), (List{{1, 1, 1}}));
  EXPECT_EQ(sender_->Deadline(), kStart + milliseconds(0xFFFF'FFFF));
  sender_->Configure({kClient, milliseconds(100), 1, false});
  EXPECT_EQ(sender_->Deadline(), kStart + milliseconds(100));
  EXPECT_EQ(SentAt(milliseconds(100)), (List{{1, 1, 1}}));
  sender_->Configure({kClient, milliseconds(0), 1, false});
  Push(2);
  EXPECT_EQ(SentAt(milliseconds(101)), (List{{0, 2, 2}}));
  EXPECT_EQ(sender_->Counters().lost, 1u);
}

TEST_F(EventSenderTest, GoesOnWhenTheRightAcknowledgeCame) {
  Push(1);
  Push(2);
  SentAt(milliseconds(0));
  const struct {
    const char* what;
    const char* ack;
    Endpoint source;
  } rows[] = {{"cut", "0000 00C1 0000 00", kClient},
              {"another id", "0000 00C1 0000 0002", kClient},
              {"another command", "0000 00C3 0000 0001", kClient},
              {"a stranger", "0000 00C1 0000 0001", {kClient.address + 1, kClient.port}},
              {"another port", "0000 00C1 0000 0001", {kClient.address, 1}}};
  for (const auto& row : rows) {
    EXPECT_EQ(Acknowledged(row.ack, milliseconds(10), row.source), List{}) << row.what;
  }
  EXPECT_EQ(Acknowledged("8001 00C1 0000 0001", milliseconds(10), kClient), (List{{1, 2, 2}}));
  EXPECT_EQ(Acknowledged("0000 00C1 0000 0001", milliseconds(10), kClient), List{});  // twice: an old one
  EXPECT_EQ(Acknowledged("0000 00C1 0000 0002", milliseconds(20), kClient), List{});
  EXPECT_EQ(sender_->Deadline(), Instant::max());
  EXPECT_EQ(sender_->Counters().lost, 0u);
}

TEST_F(EventSenderTest, TakesAcknowledgesOfAGroupFromAnywhere) {
  sender_->Configure({{0xEF00'0001, 5000}, milliseconds(100), 2, false});
  Push(1);
  SentAt(milliseconds(0));
  Acknowledged("0000 00C1 0000 0001", milliseconds(10), kClient);
  EXPECT_EQ(sender_->Deadline(), Instant::max());
}

TEST_F(EventSenderTest, SendsOnceWhatNeedsNoAcknowledge) {
  sender_->Configure({kClient, milliseconds(0), 5, true});
  for (std::uint16_t number = 1; number <= 3; ++number) Push(number);
  EXPECT_EQ(SentAt(milliseconds(0)), (List{{0x10, 1, 1}, {0x10, 2, 2}, {0x10, 3, 3}}));
  EXPECT_EQ(sender_->Deadline(), Instant::max());
}

TEST_F(EventSenderTest, StopsRepeatingWhenNoAcknowledgeIsWantedAnyMore) {
  Push(1);
  SentAt(milliseconds(0));
  sender_->Configure({kClient, milliseconds(0), 2, false});
  EXPECT_EQ(SentAt(milliseconds(100)), List{});
  EXPECT_EQ(sender_->Deadline(), Instant::max());
}

TEST_F(EventSenderTest, DropsTheNewestWhenFull) {
  for (std::uint16_t number = 1; number <= EventSender::kMaxWaiting + 3; ++number) Push(number);
  EXPECT_EQ(sender_->Counters().dropped, 3u);
  sender_->Configure({kClient, milliseconds(0), 0, false});
  const List sent = SentAt(milliseconds(0));
  ASSERT_EQ(sent.size(), EventSender::kMaxWaiting);
  EXPECT_EQ(sent.back(), (Seen{0, EventSender::kMaxWaiting, EventSender::kMaxWaiting}));
}

TEST_F(EventSenderTest, ForgetsEverythingWhenClosed) {
  for (const Endpoint closed : {Endpoint{kClient.address, 0}, Endpoint{0, kClient.port}}) {
    sender_->Configure({kClient, milliseconds(100), 2, false});
    Push(1);
    Push(2);
    SentAt(milliseconds(0));
    sender_->Configure({closed, milliseconds(100), 2, false});
    EXPECT_EQ(sender_->Deadline(), Instant::max());
    Push(3);
    sender_->Configure({kClient, milliseconds(100), 2, false});
    EXPECT_EQ(SentAt(milliseconds(1000)), List{});
  }
}

TEST_F(EventSenderTest, NeverUsesTheIdZero) {
  sender_->Configure({kClient, milliseconds(0), 0, false});
  std::uint16_t before = 0;
  for (int i = 0; i < 0x10001; ++i) {
    Push(1);
    const List sent = SentAt(milliseconds(0));
    ASSERT_EQ(sent.size(), 1u);
    ASSERT_EQ(sent[0].id, before == 0xFFFF ? 1 : before + 1);
    before = sent[0].id;
  }
}

}  // namespace
}  // namespace Tarn
