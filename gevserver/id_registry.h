#pragma once

/// Numbers that stand for objects where a C callback wants a context pointer.

#include <cstdint>
#include <map>
#include <memory>

#include "camera/base/process_mutex.h"

namespace Tarn::GevServer::Private {

/// Gives out ids for objects and finds the objects again while they live.
///
/// The library may call back after an object went. An id that outlived its object finds nothing, where an
/// address would find freed memory.
/// Threads: any thread.
template <class T>
class IdRegistry {
 public:
  /// Ids are never given out twice; 0 is none.
  std::uint64_t Add(std::weak_ptr<T> object) {
    const MutexLock lock(mutex_);
    objects_.emplace(++last_id_, std::move(object));
    return last_id_;
  }

  void Remove(std::uint64_t id) {
    const MutexLock lock(mutex_);
    objects_.erase(id);
  }

  /// The object, kept alive for the caller; null when it is gone.
  std::shared_ptr<T> Find(std::uint64_t id) const {
    const MutexLock lock(mutex_);
    const auto found = objects_.find(id);
    return found == objects_.end() ? nullptr : found->second.lock();
  }

  /// The same for a context pointer made by ContextOf.
  std::shared_ptr<T> Find(void* context) const {
    return Find(std::uint64_t{reinterpret_cast<std::uintptr_t>(context)});
  }

  static void* ContextOf(std::uint64_t id) noexcept {
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(id));
  }

 private:
  mutable ProcessMutex mutex_;
  std::map<std::uint64_t, std::weak_ptr<T>> objects_ TARN_GUARDED_BY(mutex_);
  std::uint64_t last_id_ TARN_GUARDED_BY(mutex_) = 0;
};

}  // namespace Tarn::GevServer::Private
