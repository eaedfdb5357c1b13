#include <gtest/gtest.h>

#include <array>
#include <chrono>

#include "camera/engine/stream/block_ids.h"
#include "camera/engine/stream/resend_requests.h"
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

TEST(ResendRequests, MergesAndDropsWhatIsOnItsWay) {
  using enum ResendRequests::Taken;
  ResendRequests requests;
  const Instant start{1s};
  const struct {
    ResendRequest request;
    ResendRequests::Taken taken;
  } rows[] = {{Request(1, 10, 20), Queued},   {Request(1, 12, 14), Repeated}, {Request(1, 21, 21), Queued},
              {Request(1, 5, 12), Queued},    {Request(2, 10, 20), Queued},   {Request(1, 30, ~0u), Queued},
              {Request(1, 90, 95), Repeated}, {Request(1, 5, 21), Repeated}};
  for (const auto& row : rows) EXPECT_EQ(requests.Push(row.request, start), row.taken) << row.request.first;
  EXPECT_EQ(requests.Take()->first, 5u);
  EXPECT_EQ(requests.Push(Request(1, 5, 5), start + 1s), Repeated) << "it is being answered";
  EXPECT_EQ(requests.Push(Request(1, 22, 25), start), Queued) << "what is being answered does not grow";
  EXPECT_EQ(requests.Take()->block_id, 2u);
  requests.Finish(1, start + 2s);
  EXPECT_EQ(requests.Push(Request(1, 7, 7), start + 2s + 50us), Repeated) << "it left just now";
  EXPECT_EQ(requests.Push(Request(1, 7, 7), start + 2s + 300us), Queued) << "the client's own repeat";
  EXPECT_EQ(requests.Take()->last, ~0u);
  EXPECT_EQ(requests.Take()->first, 22u);
  EXPECT_EQ(requests.Take()->first, 7u);
  EXPECT_FALSE(requests.Take());
  requests.Clear();

  std::size_t queued = 0;
  for (std::uint32_t i = 0; i < 1000; ++i)
    queued += requests.Push(Request(3, 2 * i, 2 * i), start) == Queued ? 1u : 0u;
  EXPECT_EQ(queued, ResendRequests::kCapacity);
  for (std::uint32_t i = 0; i < queued; ++i) EXPECT_EQ(requests.Take()->first, 2 * i);
}

}  // namespace
}  // namespace Tarn
