#pragma once

/// One image on its way to the client: what it is, where its bytes lie, and who wants to know when they are
/// free.

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "camera/engine/stream/chunk_tail.h"
#include "camera/engine/stream/payload_layout.h"
#include "camera/wire/gvsp.h"

namespace Tarn {

/// Told once when the memory of a block is needed no more. Destruction alone does not tell: a block that was
/// refused stays its sender's affair.
class BlockOwner {
 public:
  using Released = void (*)(void* context);

  BlockOwner() = default;
  BlockOwner(Released released, void* context) noexcept : released_(released), context_(context) {}
  BlockOwner(BlockOwner&& other) noexcept
      : released_(std::exchange(other.released_, nullptr)), context_(other.context_) {}
  BlockOwner& operator=(BlockOwner&& other) noexcept {
    released_ = std::exchange(other.released_, nullptr);
    context_ = other.context_;
    return *this;
  }

  /// Whether somebody is still to be told.
  explicit operator bool() const noexcept { return released_ != nullptr; }

  /// Calls out, once. The function must not throw.
  void Release() noexcept {
    if (const Released released = std::exchange(released_, nullptr)) released(context_);
  }

 private:
  Released released_ = nullptr;
  void* context_ = nullptr;
};

/// What leader and trailer say of a block.
struct BlockHead {
  ImageLeader image;  ///< blocks that are no images have type and timestamp of it only
  std::array<char, DataLeader::kMaxFileName + 1> file_name{};  ///< of files; ends with a zero
  std::uint32_t chunk_layout_id = 0;                           ///< of blocks with chunks
};

/// A block to be sent. The bytes behind `payload` must not change until `owner` is told.
struct ImageBlock : BlockHead {
  PayloadLayout payload;  ///< views the user's memory, or `staging`; then `tail`
  std::vector<std::uint8_t>
      staging;     ///< copy for images whose memory is not laid out as the wire is; else empty
  ChunkTail tail;  ///< empty in blocks without chunks
  BlockOwner owner;
};

}  // namespace Tarn
