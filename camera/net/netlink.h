#pragma once

/// Questions to the kernel about links, routes and queues.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "camera/base/bytes.h"
#include "camera/net/owned_fd.h"

namespace Tarn {

/// The fixed part at the front of a message or attribute; zeros when the bytes do not suffice.
template <class Body>
Body FrontOf(ByteView bytes) noexcept {
  Body body{};
  if (bytes.size() >= sizeof body) std::memcpy(&body, bytes.data(), sizeof body);
  return body;
}

/// A list of attributes where it lies in a message. Lists that are cut short end early.
/// Owns: nothing.
class NetlinkAttributes {
 public:
  explicit NetlinkAttributes(ByteView list) noexcept : list_(list) {}

  /// Those behind the fixed part of a message.
  template <class Body>
  static NetlinkAttributes Behind(ByteView message) noexcept {
    constexpr std::size_t kFront = (sizeof(Body) + 3) & ~std::size_t{3};
    return NetlinkAttributes(message.subspan(std::min(kFront, message.size())));
  }

  /// The content of the first one of that type; empty when there is none.
  std::optional<ByteView> Find(unsigned type) const noexcept;

  NetlinkAttributes List(unsigned type) const noexcept {
    return NetlinkAttributes(Find(type).value_or(ByteView()));
  }
  std::uint32_t Number(unsigned type) const noexcept {
    return FrontOf<std::uint32_t>(Find(type).value_or(ByteView()));
  }
  std::string Text(unsigned type) const;

 private:
  ByteView list_;
};

/// A request with its attributes.
class NetlinkRequest {
 public:
  /// \param flags  NLM_F_DUMP to ask for all there are, 0 for one
  template <class Body>
  NetlinkRequest(std::uint16_t type, unsigned flags, const Body& body) : NetlinkRequest(type, flags) {
    Append(&body, sizeof body);
  }

  void Add(std::uint16_t attribute, std::uint32_t value);

  ByteView Bytes() const noexcept { return bytes_; }

 private:
  NetlinkRequest(std::uint16_t type, unsigned flags);
  void Append(const void* bytes, std::size_t size);

  std::vector<std::uint8_t> bytes_;
};

/// Threads: one at a time. Sees the network namespace of the thread that made it.
class NetlinkSocket {
 public:
  /// \param groups  RTMGRP_ bits of the changes that are to be told; 0 to ask only
  /// Throws: std::system_error.
  explicit NetlinkSocket(std::uint32_t groups = 0);

  int Fd() const noexcept { return fd_.Get(); }

  /// Hands each answer over, its fixed part first. Takes as long as the kernel is busy with changes of links.
  /// Throws: std::system_error with the kernel's reason when it refuses, or when the answer cannot be read.
  void Ask(const NetlinkRequest& request, const std::function<void(ByteView message)>& each);

 private:
  OwnedFd fd_;
};

}  // namespace Tarn
