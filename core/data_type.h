#pragma once

/// What one sample of an image plane is.

#include <cstdint>

#include "gevserver/library/tr_codes.h"

namespace Tarn {

/// The data type word: low byte bits per sample, above it flags (TRDataType). Any word is allowed.
class DataType {
 public:
  constexpr explicit DataType(std::uint32_t descriptor) noexcept : descriptor_(descriptor) {}

  constexpr std::uint32_t Descriptor() const noexcept { return descriptor_; }
  constexpr std::uint32_t BitsPerPixel() const noexcept { return descriptor_ & TR_DATATYPE_BITS_MASK; }
  /// Whole bytes that hold one sample.
  constexpr std::uint32_t BytesPerPixel() const noexcept { return (BitsPerPixel() + 7) / 8; }
  constexpr bool IsSigned() const noexcept { return (descriptor_ & TR_DATATYPE_SIGNED) != 0; }
  constexpr bool IsFloat() const noexcept { return (descriptor_ & TR_DATATYPE_FLOAT) != 0; }
  /// Unsigned integers without further flags.
  constexpr bool IsPlain() const noexcept {
    return (descriptor_ & (TR_DATATYPE_SIGNED | TR_DATATYPE_FLOAT | TR_DATATYPE_FLAG)) == 0;
  }

  friend constexpr bool operator==(const DataType&, const DataType&) = default;

 private:
  std::uint32_t descriptor_;
};

/// The ready-made data types.
namespace DataTypes {
inline constexpr DataType kInt8BppUnsigned{0x008};
inline constexpr DataType kInt8BppSigned{0x108};
inline constexpr DataType kInt10BppUnsigned{0x00A};
inline constexpr DataType kInt12BppUnsigned{0x00C};
inline constexpr DataType kInt14BppUnsigned{0x00E};
inline constexpr DataType kInt16BppUnsigned{0x010};
inline constexpr DataType kInt16BppSigned{0x110};
inline constexpr DataType kInt32BppUnsigned{0x020};
inline constexpr DataType kInt32BppSigned{0x120};
inline constexpr DataType kFloat{0x320};
inline constexpr DataType kDouble{0x340};

// The words are published as numbers; the bits in them are the library's.
static_assert(kInt8BppUnsigned.BitsPerPixel() == 8 && kDouble.BitsPerPixel() == 64);
static_assert(kInt8BppSigned == DataType{TR_DATATYPE_SIGNED | 8});
static_assert(kDouble == DataType{TR_DATATYPE_SIGNED | TR_DATATYPE_FLOAT | 64});
}  // namespace DataTypes

}  // namespace Tarn
