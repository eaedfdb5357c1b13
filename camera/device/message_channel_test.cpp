#include "camera/device/message_channel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "camera/device/stream_channel_fixture.h"
#include "camera/engine/features/event_features.h"

namespace Tarn {
namespace {

class MessageChannelTest : public ::testing::Test {
 protected:
  MessageChannelTest() { Open(0ms); }

  void Report() {
    EventItem item;
    item.number = EventNumber::kFirstOfDevice;
    channel_.Queue(item, {});
    channel_.SendDue();
  }

  void Open(std::chrono::milliseconds timeout) { channel_.Configure({client_.Address(), timeout, 1, false}); }

  Receiver client_;
  MessageChannel channel_{kLoopback, std::make_shared<DeviceClock>(Now())};
};

TEST_F(MessageChannelTest, SendsTheFrameEventsThatTheClientWants) {
  channel_.FrameStarts(1);
  channel_.NotifyFrames(true, false);
  channel_.FrameStarts(2);
  channel_.FrameEnds(2);
  channel_.NotifyFrames(false, true);
  channel_.FrameStarts(3);
  channel_.FrameEnds(3);
  const Bytes start = client_.Next();
  const Bytes end = client_.Next();
  ASSERT_EQ(start.size(), 24u);
  ASSERT_EQ(end.size(), 24u);
  EXPECT_EQ(LoadBe<std::uint64_t>(&start[8]), std::uint64_t{EventNumber::kFrameStart} << 32 | 2);
  EXPECT_EQ(LoadBe<std::uint64_t>(&end[8]), std::uint64_t{EventNumber::kFrameEnd} << 32 | 3);
  EXPECT_LT(LoadBe<std::uint64_t>(&start[16]), LoadBe<std::uint64_t>(&end[16]));
  EXPECT_EQ(channel_.Counters().sent, 2u);
}

TEST_F(MessageChannelTest, WakesItsThreadForADeadline) {
  Open(100ms);
  Report();
  pollfd wakeup{channel_.Fds()[1], POLLIN, 0};
  EXPECT_EQ(::poll(&wakeup, 1, 0), 1);
  channel_.Serve();
  EXPECT_EQ(::poll(&wakeup, 1, 0), 0);
  EXPECT_LT(channel_.Deadline(), Now() + 1s);
  Open(200ms);
  EXPECT_EQ(::poll(&wakeup, 1, 0), 0);
  Open(50ms);  // nearer than before
  EXPECT_EQ(::poll(&wakeup, 1, 0), 1);
  EXPECT_EQ(client_.Next().size(), 24u);
}

TEST_F(MessageChannelTest, TakesEventsFromSeveralThreads) {
  constexpr int kThreads = 3;
  constexpr int kEach = 500;
  std::atomic<int> left = kThreads;
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < kEach; ++n) {
        Report();
        channel_.FrameEnds(1);
      }
      --left;
    });
  }
  threads.emplace_back([&] {
    for (int i = 0; left != 0; ++i) {
      Open(i % 2 == 0 ? 0ms : 1ms);
      channel_.NotifyFrames(i % 2 == 0, i % 3 == 0);
      channel_.Serve();
      static_cast<void>(channel_.Deadline());
    }
  });
  threads.clear();
  const EventCounters counters = channel_.Counters();
  EXPECT_GE(counters.sent + counters.dropped + EventSender::kMaxWaiting, std::uint64_t{kThreads * kEach});
}

}  // namespace
}  // namespace Tarn
