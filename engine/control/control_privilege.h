#pragma once

/// Who controls the device.

#include <chrono>
#include <cstdint>

#include "base/clock.h"
#include "base/endpoint.h"
#include "wire/gvcp.h"

namespace Tarn {

///   | state   | A asks  | A writes 0 | A silent too long | B asks or writes 0 |
///   |---------+---------+------------+-------------------+--------------------|
///   | Free    | Held(A) | Free       | -                 | Held(B), or Free   |
///   | Held(A) | Held(A) | Free       | Free              | refused            |
///
/// A client is its address and its port. Held has two modes: control, in which others may read, and
/// exclusive, in which they may not.
class ControlPrivilege {
 public:
  /// A write of `value` to the privilege register. On any status but Success nothing has changed.
  WireStatus Write(Endpoint who, std::uint32_t value, Instant now);
  void Release();

  /// Notes a sign of life of the holder; others' are ignored. \param arrival  when the datagram came in
  void Heard(Endpoint who, Instant arrival);

  bool Held() const { return held_; }
  Endpoint Holder() const { return held_ ? holder_ : Endpoint{}; }
  Instant LastHeard() const { return last_heard_; }
  bool IsHolder(Endpoint who) const { return held_ && who == holder_; }
  bool MayRead(Endpoint who) const { return !exclusive_ || IsHolder(who); }

  /// What the privilege register reads as. Control is shown for exclusive access too: some clients look for
  /// that bit only, and an exclusive holder is in control all the same.
  std::uint32_t Register() const;

 private:
  bool held_ = false;
  bool exclusive_ = false;
  Endpoint holder_;
  Instant last_heard_;
};

}  // namespace Tarn
