#pragma once

/// Who controls the device.

#include <cstdint>

#include "camera/base/endpoint.h"

namespace Tarn {

/// The client in control is the primary application. A client is its address and its port.
///
///   | state   | A asks  | A writes 0 | A silent too long | B asks with the key | B asks without | B writes 0 |
///   |---------+---------+------------+-------------------+---------------------+----------------+------------|
///   | Free    | Held(A) | Free       | -                 | Held(B)             | Held(B)        | Free       |
///   | Held(A) | Held(A) | Free       | Free              | Held(B) if A allows | refused        | refused    |
///
/// Held has two modes: control, in which others may read, and exclusive, in which they may not. In both the
/// primary application may allow that control is taken over by whoever knows the switchover key.
class ControlPrivilege {
 public:
  /// Whether a write of `value` to the privilege register is decided by the switchover key in it.
  bool NeedsKey(Endpoint who, std::uint32_t value) const;

  /// Whether such a write is refused whatever key it brings.
  bool Refuses(Endpoint who, std::uint32_t value) const {
    return held_ && who != primary_ && !NeedsKey(who, value);
  }

  /// A write of `value` to the privilege register.
  /// Requires: not Refuses(); the right key where NeedsKey().
  void Write(Endpoint who, std::uint32_t value);
  void Release() { *this = {}; }

  bool Held() const { return held_; }
  /// 0.0.0.0:0 when there is none.
  Endpoint Primary() const { return primary_; }
  bool IsPrimary(Endpoint who) const { return held_ && who == primary_; }
  bool MayRead(Endpoint who) const { return !exclusive_ || IsPrimary(who); }

  /// What the privilege register reads as. Control is shown for exclusive access too: some clients look for
  /// that bit only, and who has exclusive access is in control all the same.
  std::uint32_t Register() const;

 private:
  bool held_ = false;
  bool exclusive_ = false;
  bool switchover_ = false;  ///< the primary application allows it
  Endpoint primary_;
};

}  // namespace Tarn
