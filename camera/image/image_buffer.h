#pragma once

/// Image memory: a rectangle of samples in one or more planes, each at constant steps in memory.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace Tarn {

/// Where one plane lies, and what its samples are.
struct ImagePlane {
  std::uint8_t* base = nullptr;    ///< sample (0, 0)
  std::ptrdiff_t x_increment = 0;  ///< bytes from a sample to its right neighbour; may be 0 or negative
  std::ptrdiff_t y_increment = 0;  ///< bytes from a sample to the one below; may be 0 or negative
  std::uint32_t data_type = 0;     ///< low byte: bits per sample; the other bits say how to read them
};

/// Bits of one sample, and the whole bytes that hold it.
constexpr unsigned SampleBits(std::uint32_t data_type) noexcept { return data_type & 0xFF; }
constexpr unsigned SampleBytes(std::uint32_t data_type) noexcept { return (SampleBits(data_type) + 7) / 8; }

/// Offsets of a column and of a row from a plane's base: sample (x, y) lies at base + table[x].x +
/// table[y].y.
struct VpaEntry {
  std::ptrdiff_t x_offset = 0;
  std::ptrdiff_t y_offset = 0;
};

/// An image: its description never changes, its samples are the users' affair.
/// Threads: any thread.
class ImageBuffer {
 public:
  static constexpr std::uint32_t kHandleKind = 0x494D4147;  // "IMAG"

  /// Most that one dimension may measure: both protocols and users count in 32 bits.
  static constexpr std::int64_t kMaxExtent = INT32_MAX;
  /// Most planes; far beyond any sensible use, and few enough for their description to stay small.
  static constexpr std::int64_t kMaxPlanes = 65536;

  /// Throws: EngineError(kInvalidArgument) that names the first of the three that is out of bounds.
  static void RequireExtents(std::int64_t width, std::int64_t height, std::int64_t planes);

  /// A zero-filled image that owns its memory: rows of pixels, planes innermost, no padding, the first sample
  /// on a 64-byte boundary.
  /// Throws: EngineError that names the argument out of bounds; std::bad_alloc.
  static std::unique_ptr<ImageBuffer> CreateFilled(std::int64_t width, std::int64_t height,
                                                   std::int64_t planes, std::uint32_t data_type);

  /// An image over given memory.
  /// \param owner  let go of when the image dies; whatever keeps the memory valid
  /// Throws: EngineError that names the argument or plane that can't be.
  ImageBuffer(std::int64_t width, std::int64_t height, std::vector<ImagePlane> planes,
              std::shared_ptr<void> owner);

  std::int64_t Width() const noexcept { return width_; }
  std::int64_t Height() const noexcept { return height_; }
  const std::vector<ImagePlane>& Planes() const noexcept { return planes_; }

  /// Throws: EngineError(kOutOfRange) for a plane that the image doesn't have; so does VpaTable.
  const ImagePlane& Plane(std::int64_t index) const;

  /// The virtual pixel access table of a plane, max(Width(), Height()) entries; made at the first call.
  /// Owns: the image; valid while it lives.
  const VpaEntry* VpaTable(std::int64_t plane) const;

 private:
  struct LazyTable {
    std::once_flag once;
    std::unique_ptr<VpaEntry[]> entries;  // written under `once`
  };

  // Constant after construction.
  const std::int64_t width_;
  const std::int64_t height_;
  const std::vector<ImagePlane> planes_;
  const std::shared_ptr<void> owner_;

  mutable std::vector<LazyTable> tables_;  // one for each plane
};

}  // namespace Tarn
