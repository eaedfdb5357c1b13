#pragma once

/// The bytes of the device's 32-bit register space, kept only where something other than zero was written.

#include <array>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include "camera/base/bytes.h"

namespace Tarn {

/// Bytes never written read as zero. Knows no registers: what may be accessed is decided elsewhere.
/// Requires of every call: address + size <= 2^32.
class SparseMemory {
 public:
  void Read(std::uint64_t address, MutableByteView out) const noexcept;
  void Write(std::uint64_t address, ByteView bytes);
  void Clear(std::uint64_t address, std::size_t size) noexcept;

  /// Another number after each change.
  std::uint64_t Revision() const noexcept { return revision_; }

  std::uint32_t Load32(std::uint64_t address) const noexcept;
  void Store32(std::uint64_t address, std::uint32_t value);
  std::uint64_t Load64(std::uint64_t address) const noexcept {
    return std::uint64_t{Load32(address)} << 32 | Load32(address + 4);
  }
  void Store64(std::uint64_t address, std::uint64_t value) {
    Store32(address, static_cast<std::uint32_t>(value >> 32));
    Store32(address + 4, static_cast<std::uint32_t>(value));
  }

 private:
  static constexpr std::uint64_t kPageSize = 4096;
  using Page = std::array<std::uint8_t, kPageSize>;

  std::unordered_map<std::uint64_t, std::unique_ptr<Page>> pages_;
  std::uint64_t revision_ = 0;
};

}  // namespace Tarn
