// Stopping, waiting, telling owners: what may happen at the same time.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "camera/device/stream_channel_fixture.h"

namespace Tarn {
namespace {

using StreamThreads = StreamChannelTest;

TEST_F(StreamThreads, StopDropsWhatIsBeingSent) {
  const Bytes pixels = Pattern(2'000'000);
  for (const std::size_t depth : {0u, 4u}) {
    for (const bool long_delay : {false, true}) {
      Owners told;
      config.pace.bytes_per_second = long_delay ? 0 : 1'000'000;  // a block takes two seconds
      config.pace.packet_delay = long_delay ? Nanoseconds{60s} : Nanoseconds{0};
      Open(depth);
      std::thread sender([&] { EXPECT_EQ(channel->Send(Block(pixels, told.For(1))), SendResult::Accepted); });
      receiver.Next();
      channel->StopRunning();
      sender.join();
      EXPECT_TRUE(Eventually([&] { return channel->Counters().dropped_blocks == 1; }));
      if (depth == 0) {
        EXPECT_EQ(told.Told().size(), 1u);
      }
      channel->Close();
      EXPECT_EQ(told.Told().size(), 1u);
      EXPECT_EQ(channel->Counters().frames, 0u);
      receiver.Arrived();
    }
  }
}

TEST_F(StreamThreads, AcquisitionThatEndsByItselfLosesNothing) {
  config.pace.bytes_per_second = 50'000'000;
  Open(4);
  const Bytes pixels = Pattern(500'000);
  ASSERT_EQ(channel->Send(Block(pixels)), SendResult::Accepted);
  ASSERT_EQ(channel->Send(Block(pixels)), SendResult::Accepted);
  channel->EndRunning();
  EXPECT_EQ(channel->Send(Block(pixels)), SendResult::NotRunning);
  EXPECT_TRUE(Eventually([&] { return channel->Counters().frames == 2; }));
  EXPECT_EQ(channel->Counters().dropped_blocks, 0u);
  channel->Close();  // the pixels go
}

TEST_F(StreamThreads, TakesAsManyAsThereArePlacesForAndRefusesTheNextInAMoment) {
  config.pace.bytes_per_second = 1'000'000;  // a block takes two seconds
  const Bytes pixels = Pattern(2'000'000);
  for (const std::size_t depth : {0u, 1u, 4u}) {
    Owners told;
    Open(depth);
    const int places = static_cast<int>(std::max<std::size_t>(depth, StreamChannel::kStagingPlaces));
    for (int i = 1; i <= places; ++i) {
      ASSERT_TRUE(channel->HasPlace());
      ASSERT_EQ(channel->Send(Block(pixels, told.For(i))), SendResult::Accepted);
      if (depth == 0) {
        EXPECT_EQ(told.Told().size(), static_cast<std::size_t>(i)) << "of a copy the owner is told at once";
      }
    }
    EXPECT_FALSE(channel->HasPlace());
    EXPECT_EQ(channel->Send(Block(pixels, told.For(places + 1))), SendResult::NoPlace);
    EXPECT_EQ(channel->Counters().refused_images, 1u);
    EXPECT_EQ(channel->Counters().frames, 0u);
    channel->Close();
    EXPECT_EQ(told.Told().size(), static_cast<std::size_t>(places));
    EXPECT_TRUE(std::ranges::is_sorted(told.Told()));
    receiver.Arrived();
  }
}

/// First come, first served, and the holder may take it again: an interpreter lock in small.
class FairLock {
 public:
  void lock() {
    std::unique_lock guard(mutex_);
    if (holder_ != std::this_thread::get_id()) {
      const int ticket = next_ticket_++;
      served_.wait(guard, [&] { return serving_ == ticket; });
      holder_ = std::this_thread::get_id();
    }
    ++depth_;
  }
  void unlock() {
    const std::lock_guard guard(mutex_);
    if (--depth_ != 0) return;
    holder_ = {};
    ++serving_;
    served_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable served_;
  std::thread::id holder_;
  int depth_ = 0, next_ticket_ = 0, serving_ = 0;
};

/// The caller holds the lock for slices of 5 ms, in which it sends and computes; owners need it too. The
/// blocks are just so large that the loop has to finish them.
TEST_F(StreamThreads, OwnersMayNeedALockThatTheSenderHoldsAndDoNotPileUp) {
  constexpr std::size_t kBlocks = 20'000;
  struct Told {
    FairLock lock;
    std::size_t blocks = 0;
  } told;
  const auto tell = [](void* context) {
    auto* all = static_cast<Told*>(context);
    const std::lock_guard lock(all->lock);
    ++all->blocks;
  };
  const Bytes pixels = Pattern(1'000);
  Open(3);
  std::size_t most = 0;  // in one slice
  for (std::size_t next = 0; next < kBlocks;) {
    const std::lock_guard lock(told.lock);
    const std::size_t first = next;
    const auto end = std::chrono::steady_clock::now() + 5ms;
    for (; next < kBlocks && std::chrono::steady_clock::now() < end; ++next) {
      ImageBlock block = Block(pixels, {tell, &told});
      SendResult result = SendResult::NoPlace;
      for (int i = 0; i < 1000 && result == SendResult::NoPlace; ++i)
        result = channel->Send(std::move(block));
      ASSERT_EQ(result, SendResult::Accepted);
      if (next % 20 == 0) Ask(next, 1, 1);
    }
    // While one is being told the lock is waited for, a slice long.
    most = std::max(most, next - first);
    ASSERT_LE(next - told.blocks, 3 * most) << "blocks pile up";
  }
  channel->Close();
  EXPECT_EQ(told.blocks, kBlocks);
}

TEST_F(StreamThreads, ASenderWithoutResendIsToldByItselfAlthoughAnotherIsBeingTold) {
  struct Slow {
    std::atomic<bool> entered{false};
    std::atomic<bool> go_on{false};
  } slow;
  Open(0);
  const Bytes pixels = Pattern(1'000);
  const auto hold = [](void* context) {
    auto* self = static_cast<Slow*>(context);
    self->entered = true;
    EXPECT_TRUE(Eventually([&] { return self->go_on.load(); }));
  };
  std::jthread other([&] { channel->Send(Block(pixels, {hold, &slow})); });
  EXPECT_TRUE(Eventually([&] { return slow.entered.load(); }));
  EXPECT_EQ(channel->Send(Block(pixels, owners.For(1))), SendResult::Accepted);
  EXPECT_EQ(owners.Told().size(), 1u);
  slow.go_on = true;
}

TEST_F(StreamThreads, EveryOwnerIsToldOnceWhateverHappensMeanwhile) {
  const Bytes pixels = Pattern(50'000);
  for (const std::size_t depth : {0u, 3u}) {
    for (const std::uint64_t rate : {std::uint64_t{0}, std::uint64_t{50'000'000}}) {
      config.pace.bytes_per_second = rate;
      Open(depth, StreamDriver::Filter);
      std::array<std::atomic<int>, 600> told{};
      std::array<std::atomic<bool>, 600> accepted{};
      std::atomic<int> next{0};
      std::vector<std::thread> threads;
      for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&] {
          for (std::size_t i; (i = static_cast<std::size_t>(next++)) < told.size();) {
            BlockOwner owner([](void* context) { ++*static_cast<std::atomic<int>*>(context); }, &told[i]);
            accepted[i] = channel->Send(Block(pixels, std::move(owner))) == SendResult::Accepted;
          }
        });
      }
      for (std::uint32_t i = 0; static_cast<std::size_t>(next) < told.size(); ++i) {
        Ask(i, i % 30, i % 30 + 5);
        if (i % 7 == 0) channel->FireTestPacket();
        if (i % 11 == 0) i % 2 == 0 ? channel->BeginRunning(50'000) : channel->StopRunning();
        if (i % 13 == 0) channel->ChannelOpened();
        if (i % 17 == 0) {
          config.packet_size = i % 2 == 0 ? 1500 : 4000;
          channel->Configure(config);
        }
        std::this_thread::sleep_for(100us);
      }
      channel->BeginRunning(0);
      for (std::thread& thread : threads) thread.join();
      channel->Close();
      for (std::size_t i = 0; i < told.size(); ++i) ASSERT_EQ(told[i], accepted[i] ? 1 : 0) << i;
      receiver.Arrived();
    }
  }
}

TEST_F(StreamThreads, OwnersMayCloseAndDestroyTheChannel) {
  struct Closer {
    std::shared_ptr<StreamChannel> channel;
    bool close;
    std::atomic<int> told{0};
  };
  const auto tell = [](void* context) {
    auto* self = static_cast<Closer*>(context);
    if (self->close) self->channel->Close();
    self->channel.reset();
    ++self->told;
  };
  const Bytes pixels = Pattern(50'000);
  config.pace.bytes_per_second = 10'000'000;
  std::size_t sent = 0;
  for (const bool close : {false, true}) {
    for (const std::size_t depth : {0u, 1u}) {
      Open(depth);
      std::shared_ptr<StreamChannel> shared(std::move(channel));
      Closer closer{shared, close};
      ASSERT_EQ(shared->Send(Block(pixels, {tell, &closer})), SendResult::Accepted);
      if (depth != 0) {
        ASSERT_EQ(shared->Send(Block(pixels, owners.For(1))), SendResult::Accepted);
        ++sent;
        ASSERT_TRUE(Eventually([&] { return closer.told != 0; })) << "the first leaves the store";
      }
      shared.reset();
      EXPECT_TRUE(Eventually([&] { return closer.told == 1; }));
      EXPECT_TRUE(Eventually([&] { return owners.Told().size() == sent; }));
    }
  }
}

}  // namespace
}  // namespace Tarn
