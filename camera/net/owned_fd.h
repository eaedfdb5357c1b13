#pragma once

/// A file descriptor with an owner.

#include <unistd.h>

#include <utility>

namespace Tarn {

/// Closes its descriptor at the end; -1 means none.
class OwnedFd {
 public:
  OwnedFd() = default;
  explicit OwnedFd(int fd) noexcept : fd_(fd) {}
  OwnedFd(OwnedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  OwnedFd& operator=(OwnedFd&& other) noexcept {
    OwnedFd(std::move(other)).Swap(*this);
    return *this;
  }
  ~OwnedFd() {
    if (fd_ >= 0) ::close(fd_);
  }

  int Get() const noexcept { return fd_; }
  explicit operator bool() const noexcept { return fd_ >= 0; }

 private:
  void Swap(OwnedFd& other) noexcept { std::swap(fd_, other.fd_); }

  int fd_ = -1;
};

}  // namespace Tarn
