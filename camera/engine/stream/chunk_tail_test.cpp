#include "camera/engine/stream/chunk_tail.h"

#include <gtest/gtest.h>

#include "camera/engine/stream/image_block.h"

namespace Tarn {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes BytesOf(const ChunkTail& tail) { return {tail.Bytes().begin(), tail.Bytes().end()}; }

ChunkTail Tail(std::size_t image, const std::vector<std::pair<std::uint32_t, std::size_t>>& chunks) {
  ChunkTail tail;
  tail.EndImage(1, image);
  for (const auto& [id, length] : chunks) tail.Add(id, Bytes(length));
  return tail;
}

TEST(ChunkTail, PutsPaddingAndTagBehindEachChunk) {
  ChunkTail tail;
  tail.EndImage(1, 6);
  tail.Add(0x10000, Bytes{0xAA, 0xBB, 0xCC});
  tail.AddBlockId(3);
  tail.StampBlockId(0x0102030405060708);
  EXPECT_EQ(BytesOf(tail), (Bytes{0,    0,                          // image, 6 bytes before
                                  0,    0,    0,    1, 0, 0, 0, 8,  //
                                  0xAA, 0xBB, 0xCC, 0,              //
                                  0,    1,    0,    0, 0, 0, 0, 4,  //
                                  1,    2,    3,    4, 5, 6, 7, 8,  //
                                  0,    0,    0,    3, 0, 0, 0, 8}));
  EXPECT_EQ(6 + tail.Bytes().size(), ChunkTail::Size(6) + ChunkTail::Size(3) + ChunkTail::Size(8));
}

TEST(ChunkTail, HasALayoutIdThatFollowsFromTheTags) {
  const std::uint32_t id = Tail(100, {{2, 8}, {3, 4}}).LayoutId();
  EXPECT_EQ(Tail(100, {{2, 8}, {3, 4}}).LayoutId(), id);
  EXPECT_NE(Tail(104, {{2, 8}, {3, 4}}).LayoutId(), id) << "length of the image";
  EXPECT_NE(Tail(100, {{2, 4}, {3, 8}}).LayoutId(), id) << "lengths";
  EXPECT_NE(Tail(100, {{3, 4}, {2, 8}}).LayoutId(), id) << "order";
  EXPECT_NE(Tail(100, {{2, 8}}).LayoutId(), id) << "set";
}

TEST(ChunkTail, StaysInPlaceWhenItsBlockIsMoved) {
  ImageBlock block;
  block.tail = Tail(4, {{2, 8}});
  const Bytes image{1, 2, 3, 4};
  block.payload = PayloadLayout::Contiguous(image);
  block.payload.Append({block.tail.Bytes().data(), block.tail.Bytes().size(), 0, 1});
  const ImageBlock moved = std::move(block);
  Bytes joined;
  moved.payload.ForEachPiece(0, moved.payload.Size(), [&](const std::uint8_t* at, std::size_t count) {
    joined.insert(joined.end(), at, at + count);
  });
  Bytes expected = image;
  expected.insert(expected.end(), moved.tail.Bytes().begin(), moved.tail.Bytes().end());
  EXPECT_EQ(joined, expected);
}

}  // namespace
}  // namespace Tarn
