#include <gtest/gtest.h>

#include <array>
#include <chrono>

#include "camera/engine/stream/block_ids.h"
#include "camera/engine/stream/resend_requests.h"
#include "camera/engine/stream/resend_store.h"

namespace Tarn {
namespace {

using namespace std::chrono_literals;

TEST(BlockIds, WrapFrom65535To1WithShortIdsOnly) {
  BlockIds ids;
  for (std::uint64_t i = 1; i <= 0xFFFF; ++i) ASSERT_EQ(ids.Take(false), i);
  BlockIds extended = ids;
  EXPECT_EQ(ids.Take(false), 1u);
  EXPECT_EQ(extended.Take(true), 0x10000u);
  ids.Restart();
  EXPECT_EQ(ids.Take(false), 1u);
}

CutBlock Block(std::uint64_t id) {
  static const std::array<std::uint8_t, 5000> pixels{};
  ImageBlock image;
  image.payload = PayloadLayout::Contiguous(pixels);
  return {std::move(image), id, {1500, false}};
}

TEST(ResendStore, KeepsTheLastBlocksAndGivesBackInOrder) {
  ResendStore store(3);
  for (std::uint64_t id = 1; id <= 10; ++id) {
    const auto evicted = store.Keep(Block(id));
    EXPECT_EQ(evicted ? evicted->packets.BlockId() : 0, id > 3 ? id - 3 : 0);
  }
  for (std::uint64_t id = 1; id <= 11; ++id) EXPECT_EQ(store.Find(id) != nullptr, id >= 8 && id <= 10) << id;
  for (std::uint64_t id = 8; id <= 10; ++id) EXPECT_EQ(store.TakeOldest()->packets.BlockId(), id);
  EXPECT_FALSE(store.TakeOldest());

  ResendStore none(0);
  EXPECT_EQ(none.Keep(Block(7))->packets.BlockId(), 7u);
}

TEST(ResendStore, SaysWhyABlockIsNotThere) {
  ResendStore store(2);
  for (const std::uint64_t id : {65533u, 65535u, 1u, 3u}) store.Keep(Block(id));  // the last two stay
  EXPECT_EQ(store.RefusalFor(4, 3, false), StreamStatus::kNotYetAvailable);
  EXPECT_EQ(store.RefusalFor(2, 3, false), StreamStatus::kGone);
  EXPECT_EQ(store.RefusalFor(65535, 3, false), StreamStatus::kThisAndEarlierGone);
  EXPECT_EQ(store.RefusalFor(65000, 3, false), StreamStatus::kThisAndEarlierGone);
}

TEST(ResendRequests, AreMergedAndDroppedWhenTheAnswerIsOnItsWay) {
  using enum ResendRequests::Taken;
  ResendRequests requests;
  const auto push = [&](std::uint64_t block, std::uint32_t first, std::uint32_t last, Nanoseconds at = 1s) {
    return requests.Push({{0x7F000001, 5000}, block, first, last, false}, Instant{at});
  };
  EXPECT_EQ(push(1, 10, 20), Queued);
  EXPECT_EQ(push(1, 12, 14), Repeated);
  EXPECT_EQ(push(1, 21, 21), Queued);
  EXPECT_EQ(push(1, 5, 12), Queued);
  EXPECT_EQ(push(2, 10, 20), Queued);
  EXPECT_EQ(push(1, 30, ~0u), Queued);
  EXPECT_EQ(push(1, 90, 95), Repeated);
  EXPECT_EQ(push(1, 5, 21), Repeated);
  EXPECT_EQ(requests.Take()->first, 5u);
  EXPECT_EQ(push(1, 5, 5, 2s), Repeated) << "it is being answered";
  EXPECT_EQ(push(1, 22, 25), Queued) << "what is being answered does not grow";
  EXPECT_EQ(requests.Take()->block_id, 2u);
  requests.Finish(1, Instant{3s});
  EXPECT_EQ(push(1, 7, 7, 3s + 50us), Repeated) << "it left just now";
  EXPECT_EQ(push(1, 7, 7, 3s + 300us), Queued) << "the client's own repeat";
  for (const std::uint32_t first : {30u, 22u, 7u}) EXPECT_EQ(requests.Take()->first, first);
  EXPECT_FALSE(requests.Take());
  requests.Clear();

  constexpr std::uint32_t kMost = ResendRequests::kCapacity;
  for (std::uint32_t i = 0; i < 2 * kMost; ++i)
    EXPECT_EQ(push(3, 2 * i, 2 * i), i < kMost ? Queued : Dropped);
  for (std::uint32_t i = 0; i < kMost; ++i) EXPECT_EQ(requests.Take()->first, 2 * i);
}

}  // namespace
}  // namespace Tarn
