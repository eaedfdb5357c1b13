#pragma once

/// The data that can go along with images: which chunks there are, which are wanted, what is in them.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/stream/image_block.h"

namespace Tarn {

/// Ids of the device's own chunks, the same in each device; those of the program follow far behind.
enum class ChunkId : std::uint32_t {
  Image = 1,
  Timestamp,
  FrameId,
  OffsetX,
  OffsetY,
  Width,
  Height,
  PixelFormat,
  FirstOfProgram = 0x10000,
};

/// Number of a chunk's entry in ChunkSelector, and of its word among the registers of ChunkEnable.
constexpr std::uint32_t NumberOf(ChunkId id) { return static_cast<std::uint32_t>(id) - 1; }

/// Threads: guarded by the tree lock.
class ChunkSet {
 public:
  /// Finds the chunks of a tree that is about to be published. A feature of the program that is called
  /// Chunk<Name>, is a member of the category ChunkDataControl, and whose value is in the end a register of
  /// the program becomes the chunk <Name>: the register moves to a chunk port, and ChunkSelector gets an
  /// entry. A register whose feature was taken out of the category moves back.
  /// Throws: EngineError kInvalidArgument when a register cannot be a chunk or there are too many, kName or
  /// kExists when ChunkSelector cannot have an entry of the name.
  void Collect(FeatureTree& tree);

  /// Whether images go out with chunks.
  bool Active(const FeatureTree& tree) const;

  /// Bytes that follow an image of `image_bytes` when chunks are active.
  std::size_t TailBytes(const FeatureTree& tree, std::size_t image_bytes) const;

  /// The chunks of an image that is sent now. Registers of the device's own chunks show it from now on; those
  /// of the program are taken as they stand.
  ChunkTail Compose(const FeatureTree& tree, const ImageLeader& image, std::size_t image_bytes);

 private:
  struct Chunk {
    std::uint32_t id;
    std::uint32_t number;  ///< see NumberOf
    NodePtr reg;
  };

  bool Enabled(const FeatureTree& tree, const Chunk& chunk) const;
  void AddProgramsChunk(FeatureTree& tree, const NodePtr& selector, const NodePtr& feature,
                        const Chunk& chunk);

  std::vector<Chunk> chunks_;  ///< in the order of the category, without the image
};

}  // namespace Tarn
