#pragma once

/// The chunks that go behind the image of a block.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "camera/base/bytes.h"
#include "camera/wire/gvsp.h"

namespace Tarn {

/// What follows the image: the end of its own chunk, then the other chunks. The image itself stays where it
/// is.
///
///    | image | padding, tag | data, padding, tag | data, padding, tag | ...
///
/// Each chunk is padded to whole words, and its length counts the padding, so that all tags are aligned. A
/// client goes from tag to tag, from the end backwards.
/// Threads: one at a time.
class ChunkTail {
 public:
  /// Bytes that a chunk of `length` bytes takes with padding and tag.
  static constexpr std::size_t Size(std::size_t length) { return Padded(length) + ChunkTag::kSize; }

  /// Ends the chunk of the image, which comes first.
  /// \param image_bytes  without padding
  void EndImage(std::uint32_t id, std::size_t image_bytes);
  void Add(std::uint32_t id, ByteView data);
  /// A chunk of 8 bytes for the block's id, which is not known yet.
  void AddBlockId(std::uint32_t id);

  bool Empty() const noexcept { return bytes_.empty(); }
  /// Stays where it is when the tail is moved.
  ByteView Bytes() const noexcept { return bytes_; }
  void StampBlockId(std::uint64_t block_id) noexcept;

  /// Follows from ids, order and lengths of the chunks; never 0, which means that there is none.
  std::uint32_t LayoutId() const noexcept { return layout_ == 0 ? 1 : layout_; }

 private:
  static constexpr std::size_t Padded(std::size_t length) { return (length + 3) / 4 * 4; }
  void PutTag(std::uint32_t id, std::size_t length);

  std::vector<std::uint8_t> bytes_;
  std::optional<std::size_t> block_id_at_;
  std::uint32_t layout_ = 0x811C'9DC5;  // digest of the tags so far
};

}  // namespace Tarn
