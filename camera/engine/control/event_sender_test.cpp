#include "camera/engine/control/event_sender.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "camera/wire/hex_bytes_test.h"

namespace Tarn {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr Endpoint kClient{0x0A00'0001, 5000};

/// Flags, id and number of each command.
using List = std::vector<std::tuple<int, int, int>>;

class EventSenderTest : public ::testing::Test {
 protected:
  EventSenderTest() { Configure(100ms, 2); }

  void Configure(milliseconds timeout, std::uint32_t retries, Endpoint destination = kClient) {
    sender_->Configure({destination, timeout, retries, false});
  }

  void Push(int count) {
    for (int i = 0; i < count; ++i) sender_->Push({++last_number_, 0, 1, 0}, {});
  }

  /// Everything that is to be sent at an instant.
  List SentAt(milliseconds time) {
    List sent;
    const Instant now{time};
    for (ByteView bytes = sender_->Next(now); !bytes.empty(); bytes = sender_->Next(now)) {
      ByteReader in(bytes);
      const auto header = CommandHeader::Decode(in);
      EXPECT_TRUE(header && header->length == in.Rest().size());
      in.Skip(2);
      sent.emplace_back(header->flags, header->request_id, in.Take<std::uint16_t>());
    }
    return sent;
  }

  /// What follows an acknowledge.
  List Acknowledged(const char* ack, milliseconds time, Endpoint source = kClient) {
    sender_->Receive(Hex(ack), source);
    return SentAt(time);
  }

  std::unique_ptr<EventSender> sender_ = std::make_unique<EventSender>();
  std::uint16_t last_number_ = 0;
};

TEST_F(EventSenderTest, RepeatsOneCommandUntilItGivesUp) {
  EXPECT_EQ(sender_->Deadline(), Instant::max());
  Push(2);
  EXPECT_EQ(SentAt(0ms), (List{{1, 1, 1}}));
  EXPECT_EQ(SentAt(99ms), List{});
  EXPECT_EQ(SentAt(100ms), (List{{1, 1, 1}}));
  EXPECT_EQ(SentAt(250ms), (List{{1, 1, 1}}));  // a late repeat delays the next
  EXPECT_EQ(sender_->Deadline(), Instant{350ms});
  EXPECT_EQ(SentAt(350ms), (List{{1, 2, 2}}));
  EXPECT_EQ(sender_->Counters().sent, 2u);
  EXPECT_EQ(sender_->Counters().repeated, 2u);
  EXPECT_EQ(sender_->Counters().lost, 1u);
}

TEST_F(EventSenderTest, WaitsNoLongerThanTheLatestTimeout) {
  constexpr std::uint32_t kMost = 0xFFFF'FFFF;
  Configure(milliseconds(kMost), kMost);
  Push(2);
  EXPECT_EQ(SentAt(0ms), (List{{1, 1, 1}}));
  EXPECT_EQ(sender_->Deadline(), Instant{milliseconds(kMost)});
  Configure(100ms, kMost);
  EXPECT_EQ(sender_->Deadline(), Instant{100ms});
  EXPECT_EQ(SentAt(100ms), (List{{1, 1, 1}}));
  Configure(0ms, kMost);
  EXPECT_EQ(SentAt(101ms), (List{{0, 2, 2}})) << "no acknowledge is wanted any more";
  EXPECT_EQ(sender_->Counters().lost, 1u);
}

TEST_F(EventSenderTest, GoesOnWhenTheRightAcknowledgeCame) {
  Push(2);
  SentAt(0ms);
  for (const char* wrong : {"0000 00C1 0000 00", "0000 00C1 0000 0002", "0000 00C3 0000 0001"}) {
    EXPECT_EQ(Acknowledged(wrong, 10ms), List{}) << wrong;
  }
  for (const Endpoint stranger : {Endpoint{kClient.address + 1, kClient.port}, {kClient.address, 1}}) {
    EXPECT_EQ(Acknowledged("0000 00C1 0000 0001", 10ms, stranger), List{}) << stranger.port;
  }
  EXPECT_EQ(Acknowledged("8001 00C1 0000 0001", 10ms), (List{{1, 2, 2}}));
  EXPECT_EQ(Acknowledged("0000 00C1 0000 0001", 10ms), List{});  // twice: an old one
  Configure(100ms, 2, {0xEF00'0001, 5000});
  Acknowledged("0000 00C1 0000 0002", 20ms);  // one of a group answers from its own address
  EXPECT_EQ(sender_->Deadline(), Instant::max());
  EXPECT_EQ(sender_->Counters().lost, 0u);
}

TEST_F(EventSenderTest, DropsTheNewestWhenFullAndNeverUsesTheIdZero) {
  constexpr int kMost = EventSender::kMaxWaiting;
  Push(kMost + 3);
  EXPECT_EQ(sender_->Counters().dropped, 3u);
  sender_->Configure({kClient, 0ms, 5, true});  // no acknowledge is wanted: all leave at once
  const List sent = SentAt(0ms);
  ASSERT_EQ(sent.size(), EventSender::kMaxWaiting);
  EXPECT_EQ(sent.back(), std::tuple(0x10, kMost, kMost));
  EXPECT_EQ(sender_->Deadline(), Instant::max());
  for (int id = kMost + 1; id <= 0x10000; ++id) {
    Push(1);
    ASSERT_EQ(std::get<1>(SentAt(0ms).at(0)), id == 0x10000 ? 1 : id);
  }
}

TEST_F(EventSenderTest, ForgetsEverythingWhenClosed) {
  for (const Endpoint closed : {Endpoint{kClient.address, 0}, {0, kClient.port}}) {
    Configure(100ms, 2);
    Push(2);
    SentAt(0ms);
    Configure(100ms, 2, closed);
    EXPECT_EQ(sender_->Deadline(), Instant::max());
    Push(1);
    Configure(100ms, 2);
    EXPECT_EQ(SentAt(1000ms), List{});
  }
}

}  // namespace
}  // namespace Tarn
