#include "camera/net/owned_fd.h"

#include <unistd.h>

#include <unordered_set>

#include "camera/base/process_mutex.h"

namespace Tarn {
namespace {

/// The descriptors that are open, for the children of this process. Never destroyed, as threads of an
/// abandoned device may end late.
class OpenDescriptors {
 public:
  static OpenDescriptors& Instance() {
    static OpenDescriptors& open = *new OpenDescriptors;
    return open;
  }

  void Add(int fd) {
    const MutexLock lock(mutex_);
    fds_.insert(fd);
  }

  void Close(int fd) {
    const MutexLock lock(mutex_);
    fds_.erase(fd);
    ::close(fd);
  }

 private:
  OpenDescriptors() {
    OnForkedChild([this] { CloseInChild(); });
  }

  // The forking thread holds the lock.
  void CloseInChild() TARN_NO_THREAD_SAFETY_ANALYSIS {
    for (const int fd : fds_) ::close(fd);
    fds_.clear();
  }

  ProcessMutex mutex_;
  std::unordered_set<int> fds_ TARN_GUARDED_BY(mutex_);
};

}  // namespace

OwnedFd::OwnedFd(int fd) : fd_(fd), generation_(ForkGeneration()) {
  if (fd_ >= 0) OpenDescriptors::Instance().Add(fd_);
}

OwnedFd::~OwnedFd() {
  if (Get() >= 0) OpenDescriptors::Instance().Close(fd_);
}

int OwnedFd::Get() const noexcept { return generation_ == ForkGeneration() ? fd_ : -1; }

}  // namespace Tarn
