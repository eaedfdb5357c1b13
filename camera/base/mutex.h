#pragma once

/// A mutex and lock that Clang's thread-safety analysis understands.

#include <mutex>

#if defined(__clang__)
#define TARN_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define TARN_THREAD_ATTRIBUTE(x)
#endif

#define TARN_CAPABILITY(x) TARN_THREAD_ATTRIBUTE(capability(x))
#define TARN_SCOPED_CAPABILITY TARN_THREAD_ATTRIBUTE(scoped_lockable)
#define TARN_GUARDED_BY(x) TARN_THREAD_ATTRIBUTE(guarded_by(x))
#define TARN_REQUIRES(...) TARN_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define TARN_ACQUIRE(...) TARN_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TARN_RELEASE(...) TARN_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TARN_EXCLUDES(...) TARN_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define TARN_NO_THREAD_SAFETY_ANALYSIS TARN_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace Tarn {

/// std::mutex with annotations; waits go through std::condition_variable_any.
class TARN_CAPABILITY("mutex") Mutex {
 public:
  void lock() TARN_ACQUIRE() { mutex_.lock(); }
  void unlock() TARN_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a Mutex for a scope; may be let go and taken again in between, for calls out.
class TARN_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) TARN_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() TARN_RELEASE() {
    if (held_) mutex_.unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() TARN_ACQUIRE() {
    mutex_.lock();
    held_ = true;
  }
  void unlock() TARN_RELEASE() {
    held_ = false;
    mutex_.unlock();
  }

 private:
  Mutex& mutex_;
  bool held_ = true;
};

}  // namespace Tarn
