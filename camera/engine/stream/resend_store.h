#pragma once

/// Keeps the last sent blocks, as references to their images, for as long as the client may ask for packets
/// again.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "camera/engine/stream/image_block.h"
#include "camera/engine/stream/packetiser.h"

namespace Tarn {

/// A block and how it was cut.
struct CutBlock {
  ImageBlock block;
  Packetiser packets;
  /// Packets that may still be sent again. Twice the block is more than a client on a bad line needs, and
  /// keeps a stream of requests from becoming a flood.
  std::uint64_t resend_budget;
  std::uint16_t flags = 0;  ///< of all its packets; extended form only

  CutBlock(ImageBlock&& image, std::uint64_t block_id, const PacketForm& form)
      : block(std::move(image)),
        packets(block, block.payload.Size(), block_id, form),
        resend_budget(2 * std::uint64_t{packets.Count()}) {}
};

/// A ring of at most `depth` blocks, in the order of sending.
/// Threads: one at a time.
class ResendStore {
 public:
  explicit ResendStore(std::size_t depth) : ring_(depth) {}

  std::size_t Count() const noexcept { return count_; }

  /// Returns the block that had to make room; the new one itself when the depth is 0.
  std::optional<CutBlock> Keep(CutBlock&& block);

  /// The oldest block, taken out; empty when there is none.
  std::optional<CutBlock> TakeOldest();

  /// Null when the block is not kept.
  CutBlock* Find(std::uint64_t block_id) noexcept;

  /// Why a block is not kept, as an extended status.
  /// \param newest  id of the latest block that was begun
  std::uint16_t RefusalFor(std::uint64_t block_id, std::uint64_t newest, bool extended_ids) const noexcept;

 private:
  std::optional<CutBlock>& At(std::size_t index) noexcept { return ring_[(head_ + index) % ring_.size()]; }

  std::vector<std::optional<CutBlock>> ring_;
  std::size_t head_ = 0;
  std::size_t count_ = 0;
};

}  // namespace Tarn
