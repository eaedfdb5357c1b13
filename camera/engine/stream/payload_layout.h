#pragma once

/// Where the payload bytes of a block lie in memory, in the order in which they go onto the wire.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "camera/base/bytes.h"

namespace Tarn {

/// Rows of equal length at a constant distance. A contiguous area is one row.
struct PayloadPlane {
  const std::uint8_t* base = nullptr;  ///< first byte of the first row
  std::size_t row_bytes = 0;           ///< bytes that belong to the payload in each row
  std::ptrdiff_t stride = 0;           ///< bytes from one row to the next; negative when rows lie upside down
  std::size_t rows = 0;

  std::size_t Size() const noexcept { return row_bytes * rows; }
};

/// Up to four planes of an image, and what follows them, one behind the other; borrows the memory.
/// Threads: immutable; any thread.
class PayloadLayout {
 public:
  static constexpr std::size_t kMaxPlanes = 4;  // Source: PFNC, no planar format has more

  PayloadLayout() = default;
  static PayloadLayout Contiguous(ByteView bytes) noexcept {
    PayloadLayout layout;
    layout.Append({bytes.data(), bytes.size(), 0, 1});
    return layout;
  }

  /// Requires: at most kMaxPlanes planes so far; one more may follow the planes of an image. Rows that touch
  /// each other are joined to one.
  void Append(PayloadPlane plane) noexcept {
    if (plane.rows > 1 && plane.stride == static_cast<std::ptrdiff_t>(plane.row_bytes)) {
      plane = {plane.base, plane.row_bytes * plane.rows, 0, 1};
    }
    planes_[plane_count_++] = plane;
    size_ += plane.Size();
    if (plane.rows > 1) {
      shortest_row_ = shortest_row_ == 0 ? plane.row_bytes : std::min(shortest_row_, plane.row_bytes);
    }
  }

  std::size_t Size() const noexcept { return size_; }

  /// Calls `take(const std::uint8_t* bytes, std::size_t count)` for each connected piece of the `length`
  /// bytes from `offset`, in order.
  /// Requires: offset + length <= Size().
  template <class Take>
  void ForEachPiece(std::size_t offset, std::size_t length, Take&& take) const {
    if (plane_count_ == 1 && planes_[0].rows == 1) {
      if (length != 0) take(planes_[0].base + offset, length);
      return;
    }
    for (std::size_t i = 0; i < plane_count_ && length != 0; ++i) {
      const PayloadPlane& plane = planes_[i];
      const std::size_t size = plane.Size();
      if (offset >= size) {
        offset -= size;
        continue;
      }
      const std::size_t here = std::min(length, size - offset);
      PiecesOfRows(plane, offset, here, take);
      length -= here;
      offset = 0;
    }
  }

  /// An upper limit for the pieces of any slice of `length` bytes: whole rows, cut rows at both ends, borders
  /// of planes.
  std::size_t MaxPieces(std::size_t length) const noexcept {
    return shortest_row_ == 0 ? plane_count_ : length / shortest_row_ + 2 + plane_count_;
  }

 private:
  template <class Take>
  static void PiecesOfRows(const PayloadPlane& plane, std::size_t offset, std::size_t length, Take& take) {
    std::size_t row = offset / plane.row_bytes;
    std::size_t column = offset % plane.row_bytes;
    while (length != 0) {
      const std::size_t count = std::min(length, plane.row_bytes - column);
      take(plane.base + static_cast<std::ptrdiff_t>(row) * plane.stride + column, count);
      length -= count;
      column = 0;
      ++row;
    }
  }

  std::array<PayloadPlane, kMaxPlanes + 1> planes_{};
  std::size_t plane_count_ = 0;
  std::size_t size_ = 0;
  std::size_t shortest_row_ = 0;  // of planes with several rows; 0: there are none
};

}  // namespace Tarn
