#pragma once

/// From handles to the objects behind them, and back.

#include <memory>
#include <new>
#include <utility>

#include "camera/base/engine_error.h"
#include "gevserver/library/tr_core.h"

namespace Tarn {

/// The object of type T behind a handle, kept alive for a scope.
///
/// T::kHandleKind, a number that no other type uses, tells the types of handles apart.
template <class T>
class Pinned {
 public:
  /// Throws: EngineError(kInvalidHandle) when the handle is null, stale or stands for something else than a
  /// T.
  explicit Pinned(TR_HANDLE handle)
      : handle_(handle), object_(static_cast<T*>(TRCPinHandle(handle, T::kHandleKind))) {
    if (object_ == nullptr) {
      throw EngineError(Failure::kInvalidHandle,
                        handle == nullptr ? "the handle is null" : "the handle is stale or of another kind");
    }
  }
  ~Pinned() {
    if (object_ != nullptr) ReleaseObject(&handle_);
  }
  Pinned(Pinned&& other) noexcept : handle_(other.handle_), object_(std::exchange(other.object_, nullptr)) {}
  Pinned& operator=(Pinned&&) = delete;

  T& operator*() const noexcept { return *object_; }
  T* operator->() const noexcept { return object_; }

 private:
  TR_HANDLE handle_;
  T* object_;
};

/// Gives `object` to a new handle with one reference, for the caller to own.
/// Throws: std::bad_alloc when no handle can be had; the object is gone then.
template <class T>
TR_HANDLE MakeHandle(std::unique_ptr<T> object) {
  const TR_HANDLE handle =
      TRCCreateHandle(object.get(), T::kHandleKind, [](void* dead) { delete static_cast<T*>(dead); });
  if (handle == nullptr) throw std::bad_alloc();
  object.release();
  return handle;
}

}  // namespace Tarn
