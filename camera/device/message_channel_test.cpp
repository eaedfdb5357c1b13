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

  void Open(std::chrono::milliseconds timeout) { channel_.Configure({client_.Address(), timeout, 1, false}); }

  void Report() {
    EventItem item;
    item.number = EventNumber::kFirstOfDevice;
    channel_.Queue(item, {});
    channel_.SendDue();
  }

  bool Woken() {
    pollfd wakeup{channel_.Fds()[1], POLLIN, 0};
    return ::poll(&wakeup, 1, 0) == 1;
  }

  Receiver client_;
  MessageChannel channel_{kLoopback, std::make_shared<DeviceClock>(Now())};
};

TEST_F(MessageChannelTest, SendsTheFrameEventsThatTheClientWants) {
  std::uint64_t frame = 0, last = 0;
  for (const auto& [start, end] : {std::pair(false, false), std::pair(true, false), std::pair(false, true)}) {
    channel_.NotifyFrames(start, end);
    channel_.FrameStarts(++frame);
    channel_.FrameEnds(frame);
    if (!start && !end) continue;
    const Bytes event = client_.Next();
    ASSERT_EQ(event.size(), 24u);
    const std::uint64_t number = start ? EventNumber::kFrameStart : EventNumber::kFrameEnd;
    EXPECT_EQ(LoadBe<std::uint64_t>(&event[8]), number << 32 | frame);
    EXPECT_LT(std::exchange(last, LoadBe<std::uint64_t>(&event[16])), LoadBe<std::uint64_t>(&event[16]));
  }
  EXPECT_EQ(channel_.Counters().sent, 2u);
}

TEST_F(MessageChannelTest, WakesItsThreadForADeadline) {
  Open(100s);
  Report();
  EXPECT_TRUE(Woken());
  channel_.Serve();
  EXPECT_FALSE(Woken());
  EXPECT_LT(channel_.Deadline(), Now() + 101s);
  Open(200s);
  EXPECT_FALSE(Woken());
  Open(50s);  // nearer than before
  EXPECT_TRUE(Woken());
  EXPECT_EQ(client_.Next().size(), 24u);
}

TEST_F(MessageChannelTest, TakesEventsFromSeveralThreads) {
  constexpr int kThreads = 3;
  constexpr int kEach = 500;
  std::atomic<int> left = kThreads;
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < kEach; ++n) Report();
      --left;
    });
  }
  for (std::uint64_t i = 0; left != 0; ++i) {
    Open(i % 2 == 0 ? 0ms : 1ms);
    channel_.NotifyFrames(i % 2 == 0, i % 3 == 0);
    channel_.FrameEnds(i);
    channel_.Serve();
    static_cast<void>(channel_.Deadline());
  }
  threads.clear();
  const EventCounters counters = channel_.Counters();
  EXPECT_GE(counters.sent + counters.dropped + EventSender::kMaxWaiting, std::uint64_t{kThreads * kEach});
}

}  // namespace
}  // namespace Tarn
