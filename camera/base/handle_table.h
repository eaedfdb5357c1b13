#pragma once

/// Reference-counted handles that outlive their misuse: a handle is a number, and one that was never given
/// out, or whose object is gone, is recognised as such.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "camera/base/mutex.h"

namespace Tarn {

/// The objects known under handles, and how many references each has.
///
/// Each handle names a slot of an array and the slot's generation. A slot's memory is never given back, so
/// looking at the slot of a stale handle is always safe, and its generation then tells that the handle is
/// stale:
///
///   | call    | slot free or of another generation | count n >= 1                   |
///   |---------+------------------------------------+--------------------------------|
///   | Share   | refused                            | n + 1                          |
///   | Pin     | refused                            | n + 1 (if kind)                |
///   | Release | refused                            | n - 1; at 0 the object goes,   |
///   |         |                                    | and the generation moves on    |
///
/// Share, Pin and Release take no lock: generation and count change together, in one atomic word. Constant
/// initialised and trivially destroyed, so that one at namespace scope serves static objects to the very end.
/// Threads: any thread.
class HandleTable {
 public:
  using Handle = std::uint64_t;
  using Destroy = void (*)(void* object);

  /// Makes `object` known with one reference; `destroy(object)` runs when the last one goes, on that thread.
  /// \return 0 when there is no room for more handles; `object` still belongs to the caller then
  Handle Create(void* object, std::uint32_t kind, Destroy destroy) noexcept TARN_EXCLUDES(mutex_);

  /// Adds a reference; false for no live handle.
  [[nodiscard]] bool Share(Handle handle) noexcept;

  /// The object, with a reference added; null for no live handle of `kind`.
  [[nodiscard]] void* Pin(Handle handle, std::uint32_t kind) noexcept;

  /// Drops a reference; false for no live handle.
  [[nodiscard]] bool Release(Handle handle) noexcept;

  /// Has forks leave the table usable in the child. To be called once, ahead of everything that uses handles
  /// and guards locks of its own, as it may hold those while it asks for a handle.
  void GuardAtForks();

  /// Number of objects created and not yet destroyed.
  std::uint64_t LiveCount() const noexcept { return live_; }

 private:
  struct Slot {
    // Generation in the upper half, references in the lower; 0 references: free. Whoever sees a reference of
    // his generation in here sees the fields below as Create wrote them.
    std::atomic<std::uint64_t> word{std::uint64_t{1} << 32};
    std::atomic<std::uint32_t> kind{0};  // Pin looks at it before it owns a reference
    std::atomic<std::uint32_t> next_free{0};
    void* object = nullptr;
    Destroy destroy = nullptr;
  };

  static constexpr std::size_t kSlotsPerChunk = 1024;
  static constexpr std::size_t kMaxChunks = 4096;

  Slot* Find(Handle handle) const noexcept;
  static bool AddReference(Slot& slot, Handle handle) noexcept;
  std::uint32_t TakeFree() noexcept TARN_REQUIRES(mutex_);
  void PutFree(std::uint32_t number) noexcept;
  Slot& At(std::uint32_t number) const noexcept;

  Mutex mutex_;
  std::uint32_t used_ TARN_GUARDED_BY(mutex_) = 0;  // slots that have ever been taken

  std::array<std::atomic<Slot*>, kMaxChunks> chunks_{};
  std::atomic<std::uint32_t> first_free_{0};  // number + 1 of a slot, 0: none
  std::atomic<std::uint64_t> live_{0};
};

}  // namespace Tarn
