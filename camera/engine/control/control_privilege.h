#pragma once

/// Who controls the device.

#include <chrono>
#include <cstdint>

#include "camera/base/clock.h"
#include "camera/base/endpoint.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

///   | state   | A asks  | A writes 0 | A silent too long | B asks with the key | B asks without | B writes 0 |
///   |---------+---------+------------+-------------------+---------------------+----------------+------------|
///   | Free    | Held(A) | Free       | -                 | Held(B)             | Held(B)        | Free       |
///   | Held(A) | Held(A) | Free       | Free              | Held(B) if A allows | refused        | refused    |
///
/// A client is its address and its port. Held has two modes: control, in which others may read, and
/// exclusive, in which they may not. In both the holder may allow that control is taken over by whoever knows
/// the switchover key.
class ControlPrivilege {
 public:
  /// A write of `value` to the privilege register. On any status but Success nothing has changed.
  /// \param switchover_key  what others must know to take over
  WireStatus Write(Endpoint who, std::uint32_t value, std::uint32_t switchover_key, Instant now);
  void Release();

  /// Notes a sign of life of the holder; others' are ignored.
  /// \param arrival  when the datagram came in
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
  bool switchover_ = false;  ///< the holder allows it
  Endpoint holder_;
  Instant last_heard_;
};

}  // namespace Tarn
