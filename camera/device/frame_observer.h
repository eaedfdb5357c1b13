#pragma once

/// Hears of frames where they are sent.

#include <cstdint>

namespace Tarn {

/// Threads: called by whoever sends a frame, one at a time, once for each frame. Must not wait.
class FrameObserver {
 public:
  virtual ~FrameObserver() = default;

  /// The leader goes out next.
  virtual void FrameStarts(std::uint64_t block_id) noexcept = 0;
  /// The trailer is out. Frames that are given up have no end.
  virtual void FrameEnds(std::uint64_t block_id) noexcept = 0;
};

}  // namespace Tarn
