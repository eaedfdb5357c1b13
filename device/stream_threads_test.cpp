// Stopping, waiting, telling owners: what may happen at the same time.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

#include "device/stream_channel_fixture.h"

namespace Tarn {
namespace {

using StreamThreads = StreamChannelTest;

TEST_F(StreamThreads, StopDropsWhatIsBeingSent) {
  const Bytes pixels = Pattern(2'000'000);
  for (const std::size_t depth : {0u, 4u}) {
    for (const bool long_delay : {false, true}) {
      Owners told;
      config.bytes_per_second = long_delay ? 0 : 1'000'000;  // a block takes two seconds
      config.packet_delay = long_delay ? Nanoseconds{60s} : Nanoseconds{0};
      Open(depth);
      std::thread sender([&] { EXPECT_EQ(channel->Send(Block(pixels, told.For(1))), SendResult::Accepted); });
      receiver.Next();
      channel->SetRunning(false);
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
  config.bytes_per_second = 50'000'000;
  Open(4);
  const Bytes pixels = Pattern(500'000);
  ASSERT_EQ(channel->Send(Block(pixels)), SendResult::Accepted);
  ASSERT_EQ(channel->Send(Block(pixels)), SendResult::Accepted);
  channel->EndRunning();
  EXPECT_EQ(channel->Send(Block(pixels)), SendResult::NotRunning);
  EXPECT_TRUE(Eventually([&] { return channel->Counters().frames == 2; }));
  EXPECT_EQ(channel->Counters().dropped_blocks, 0u);
}

TEST_F(StreamThreads, ASenderWithPacingDoesNotWaitUntilThreeBlocksAreOnTheirWay) {
  config.bytes_per_second = 1'000'000;
  Open(8);
  const Bytes pixels = Pattern(2'000'000);
  for (int i = 1; i <= 3; ++i) ASSERT_EQ(channel->Send(Block(pixels, owners.For(i))), SendResult::Accepted);
  EXPECT_EQ(channel->Counters().frames, 0u) << "a block takes two seconds, so none was waited for";
  std::atomic<bool> returned{false};
  std::thread fourth([&] {
    channel->Send(Block(pixels, owners.For(4)));
    returned = true;
  });
  channel->Close();  // lets the fourth go
  fourth.join();
  EXPECT_TRUE(returned);
  auto told = owners.Told();
  if (told.size() == 4) told.pop_back();  // taken before the channel was closed, or refused
  EXPECT_EQ(told, (std::vector{1, 2, 3}));
}

/// The caller holds a lock all the time, and owners need it: as with an interpreter lock.
TEST_F(StreamThreads, OwnersMayNeedALockThatTheSenderHolds) {
  struct Told {
    std::recursive_mutex lock;
    std::vector<std::uint64_t> blocks;
  } told;
  struct Note {
    Told* told;
    std::uint64_t number;
  };
  const Bytes pixels = Pattern(30'000);
  std::vector<Note> notes;
  for (std::uint64_t i = 0; i < 500; ++i) notes.push_back({&told, i});
  config.bytes_per_second = 100'000'000;
  Open(3);
  for (Note& note : notes) {
    {
      const std::lock_guard lock(told.lock);
      BlockOwner owner(
          [](void* context) {
            const auto* n = static_cast<const Note*>(context);
            const std::lock_guard inner(n->told->lock);
            n->told->blocks.push_back(n->number);
          },
          &note);
      ASSERT_EQ(channel->Send(Block(pixels, std::move(owner))), SendResult::Accepted);
      ASSERT_LE(note.number - told.blocks.size(), 100u) << "blocks pile up";
    }
    if (note.number % 50 == 0) Ask(note.number, 1, 5);
  }
  channel->Close();
  ASSERT_EQ(told.blocks.size(), notes.size());
  for (std::uint64_t i = 0; i < notes.size(); ++i) ASSERT_EQ(told.blocks[i], i);
}

TEST_F(StreamThreads, EveryOwnerIsToldOnceWhateverHappensMeanwhile) {
  const Bytes pixels = Pattern(50'000);
  for (const std::size_t depth : {0u, 3u}) {
    for (const std::uint64_t rate : {std::uint64_t{0}, std::uint64_t{50'000'000}}) {
      config.bytes_per_second = rate;
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
        if (i % 11 == 0) channel->SetRunning(i % 2 == 0);
        if (i % 13 == 0) channel->ChannelOpened();
        if (i % 17 == 0) {
          config.packet_size = i % 2 == 0 ? 1500 : 4000;
          channel->Configure(config);
        }
        std::this_thread::sleep_for(100us);
      }
      channel->SetRunning(true);
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
    std::atomic<int>* told;
  };
  const Bytes pixels = Pattern(50'000);
  for (const bool close : {false, true}) {
    for (const std::size_t depth : {0u, 1u}) {
      config.bytes_per_second = 10'000'000;
      Open(depth);
      std::shared_ptr<StreamChannel> shared(std::move(channel));
      std::atomic<int> told{0};
      Closer closer{shared, close, &told};
      BlockOwner first(
          [](void* context) {
            auto* self = static_cast<Closer*>(context);
            if (self->close) self->channel->Close();
            self->channel.reset();
            ++*self->told;
          },
          &closer);
      ASSERT_EQ(shared->Send(Block(pixels, std::move(first))), SendResult::Accepted);
      if (depth != 0) {
        BlockOwner second([](void* context) { ++*static_cast<std::atomic<int>*>(context); }, &told);
        ASSERT_EQ(shared->Send(Block(pixels, std::move(second))), SendResult::Accepted);
        ASSERT_TRUE(Eventually([&] { return told != 0; })) << "the first leaves the store";
      }
      shared.reset();
      EXPECT_TRUE(Eventually([&] { return told == (depth == 0 ? 1 : 2); }));
    }
  }
}

}  // namespace
}  // namespace Tarn
