#pragma once

/// A file descriptor with an owner.

#include <utility>

namespace Tarn {

/// Closes its descriptor at the end; -1 means none.
///
/// A descriptor belongs to the process that opened it: a forked child closes its copies at once, so that a
/// socket's address is free when the parent lets go of it, and what owns one there owns none.
/// Threads: one at a time.
class OwnedFd {
 public:
  OwnedFd() = default;
  explicit OwnedFd(int fd);
  OwnedFd(OwnedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)), generation_(other.generation_) {}
  OwnedFd& operator=(OwnedFd&& other) noexcept {
    OwnedFd(std::move(other)).Swap(*this);
    return *this;
  }
  ~OwnedFd();

  int Get() const noexcept;
  explicit operator bool() const noexcept { return Get() >= 0; }

 private:
  void Swap(OwnedFd& other) noexcept {
    std::swap(fd_, other.fd_);
    std::swap(generation_, other.generation_);
  }

  int fd_ = -1;
  unsigned generation_ = 0;  ///< of the process that opened it
};

}  // namespace Tarn
