#include <gtest/gtest.h>

#include <array>
#include <chrono>

#include "camera/engine/stream/block_ids.h"
#include "camera/engine/stream/resend_queue.h"
#include "camera/engine/stream/resend_store.h"

namespace Tarn {
namespace {

using namespace std::chrono_literals;

const std::array<std::uint8_t, 5000> kPixels{};

CutBlock Block(std::uint64_t id) {
  ImageBlock image;
  image.payload = PayloadLayout::Contiguous(kPixels);
  return {std::move(image), id, {1500, false}};
}

TEST(BlockIds, WrapFrom65535To1WithShortIdsOnly) {
  BlockIds ids;
  for (std::uint64_t i = 1; i <= 0xFFFF; ++i) ASSERT_EQ(ids.Take(false), i);
  BlockIds extended = ids;
  EXPECT_EQ(ids.Take(false), 1u);
  EXPECT_EQ(extended.Take(true), 0x10000u);
  ids.Restart();
  EXPECT_EQ(ids.Take(false), 1u);
}

TEST(ResendStore, KeepsTheLastBlocksAndGivesBackInOrder) {
  ResendStore store(3);
  for (std::uint64_t id = 1; id <= 10; ++id) {
    const auto evicted = store.Keep(Block(id));
    ASSERT_EQ(evicted.has_value(), id > 3);
    if (evicted) {
      EXPECT_EQ(evicted->packets.BlockId(), id - 3);
    }
  }
  for (std::uint64_t id = 1; id <= 11; ++id) EXPECT_EQ(store.Find(id) != nullptr, id >= 8 && id <= 10) << id;
  for (std::uint64_t id = 8; id <= 10; ++id) EXPECT_EQ(store.TakeOldest()->packets.BlockId(), id);
  EXPECT_FALSE(store.TakeOldest());

  ResendStore none(0);
  EXPECT_EQ(none.Keep(Block(7))->packets.BlockId(), 7u);
}

TEST(ResendStore, SaysWhyABlockIsNotThere) {
  ResendStore store(2);
  for (const std::uint64_t id : {65533u, 65535u, 1u, 3u})
    store.Keep(Block(id));  // 1 and 3 are kept, 2 was lost
  const struct {
    std::uint64_t id;
    std::uint16_t status;
  } rows[] = {{4, StreamStatus::kNotYetAvailable},
              {2, StreamStatus::kGone},
              {65535, StreamStatus::kThisAndEarlierGone},
              {65000, StreamStatus::kThisAndEarlierGone}};
  for (const auto& row : rows) {
    EXPECT_EQ(store.RefusalFor(row.id, 3, false), row.status) << row.id;
  }
}

ResendRequest Request(std::uint64_t block, std::uint32_t first, std::uint32_t last) {
  return {{0x7F000001, 5000}, block, first, last, false};
}

TEST(ResendQueue, DropsRepeatsForAWhileAndWhatDoesNotFit) {
  ResendQueue queue;
  const Instant start{1s};
  EXPECT_TRUE(queue.Push(Request(1, 10, 20), start));
  EXPECT_FALSE(queue.Push(Request(1, 10, 20), start + 1ms)) << "the same again";
  EXPECT_FALSE(queue.Push(Request(1, 12, 14), start + 1ms)) << "a part of it";
  EXPECT_TRUE(queue.Push(Request(1, 12, 21), start + 1ms)) << "more than was asked for";
  EXPECT_TRUE(queue.Push(Request(2, 10, 20), start + 1ms)) << "another block";
  EXPECT_TRUE(queue.Push(Request(1, 10, 20), start + 20ms)) << "the client's own repeat";
  EXPECT_EQ(queue.Pop()->last, 20u);
  EXPECT_EQ(queue.Pop()->last, 21u);
  queue.Clear();
  EXPECT_FALSE(queue.Pop());

  std::size_t taken = 0;
  for (std::uint32_t i = 0; i < 1000; ++i) taken += queue.Push(Request(3, i, i), start + 1s) ? 1u : 0u;
  EXPECT_EQ(taken, ResendQueue::kCapacity);
  for (std::uint32_t i = 0; i < taken; ++i) EXPECT_EQ(queue.Pop()->first, i);
}

}  // namespace
}  // namespace Tarn
