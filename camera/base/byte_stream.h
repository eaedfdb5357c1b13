#pragma once

/// Bounded reading and writing of big-endian fields, front to back.

#include <algorithm>
#include <cstring>

#include "camera/base/bytes.h"

namespace Tarn {

/// Takes fields from the front of a view. The first read past the end makes it fail for good: fields then
/// read as 0, so a decoder asks Ok() once, at its end.
class ByteReader {
 public:
  explicit ByteReader(ByteView bytes) noexcept : rest_(bytes) {}

  template <class T>
  T Take() noexcept {
    const ByteView field = TakeBytes(sizeof(T));
    return ok_ ? LoadBe<T>(field.data()) : T{0};
  }

  /// The next `count` bytes; empty after a failure.
  ByteView TakeBytes(std::size_t count) noexcept {
    if (!ok_ || count > rest_.size()) {
      ok_ = false;
      return {};
    }
    const ByteView taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }

  void Skip(std::size_t count) noexcept { TakeBytes(count); }
  bool Ok() const noexcept { return ok_; }
  ByteView Rest() const noexcept { return rest_; }

 private:
  ByteView rest_;
  bool ok_ = true;
};

/// Puts fields one behind the other into a buffer; what does not fit is dropped and makes it fail for good.
class ByteWriter {
 public:
  explicit ByteWriter(MutableByteView buffer) noexcept : buffer_(buffer) {}

  template <class T>
  void Put(T value) noexcept {
    if (std::uint8_t* at = Claim(sizeof(T))) StoreBe(at, value);
  }
  void PutBytes(ByteView bytes) noexcept {
    if (std::uint8_t* at = Claim(bytes.size()); at && !bytes.empty())
      std::memcpy(at, bytes.data(), bytes.size());
  }
  void PutZeros(std::size_t count) noexcept {
    if (std::uint8_t* at = Claim(count)) std::fill_n(at, count, std::uint8_t{0});
  }

  bool Ok() const noexcept { return ok_; }
  std::size_t Size() const noexcept { return used_; }
  ByteView Written() const noexcept { return ByteView(buffer_).first(used_); }

 private:
  std::uint8_t* Claim(std::size_t count) noexcept {
    if (!ok_ || count > buffer_.size() - used_) {
      ok_ = false;
      return nullptr;
    }
    used_ += count;
    return buffer_.data() + used_ - count;
  }

  MutableByteView buffer_;
  std::size_t used_ = 0;
  bool ok_ = true;
};

}  // namespace Tarn
