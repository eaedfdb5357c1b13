#pragma once

/// Ownership of one reference to a library object.

#include <functional>
#include <utility>

#include "gevserver/library/tr_core.h"

namespace Tarn {

/// Owns one library handle and gives it back once, when destroyed.
///
/// `Kind` names what the handle stands for and has no other part: handles of different kinds do not mix.
/// Threads: one at a time.
template <class Kind>
class HandleGuard {
 public:
  /// Called with the handle that is given back. Must not throw: it runs in destructors.
  using Release = std::function<void(TR_HANDLE)>;

  /// Owns nothing.
  HandleGuard() noexcept = default;

  /// \param handle   the reference to own; null owns nothing
  /// \param release  how to give it back; empty means ReleaseObject
  explicit HandleGuard(TR_HANDLE handle, Release release = {})
      : handle_(handle), release_(release ? std::move(release) : ReleaseReference) {}

  ~HandleGuard() {
    if (handle_ != nullptr) release_(handle_);
  }

  HandleGuard(HandleGuard&& other) noexcept
      : handle_(std::exchange(other.handle_, nullptr)), release_(std::move(other.release_)) {}
  HandleGuard& operator=(HandleGuard&& other) noexcept {
    HandleGuard taken(std::move(other));
    std::swap(handle_, taken.handle_);
    std::swap(release_, taken.release_);
    return *this;
  }
  HandleGuard(const HandleGuard&) = delete;
  HandleGuard& operator=(const HandleGuard&) = delete;

  TR_HANDLE Get() const noexcept { return handle_; }
  explicit operator bool() const noexcept { return handle_ != nullptr; }

 private:
  // The status is of no use in a destructor: a handle that is stale already needs no release.
  static void ReleaseReference(TR_HANDLE handle) { static_cast<void>(ReleaseObject(&handle)); }

  TR_HANDLE handle_ = nullptr;
  Release release_;
};

/// A handle whose kind does not matter.
using RawHandleGuard = HandleGuard<void>;

}  // namespace Tarn
