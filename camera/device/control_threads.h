#pragma once

/// The control port with its two threads: one receives, answers and watches the clock; the other calls listeners, so
/// that a slow one keeps nobody else waiting.

#include <cstdint>
#include <memory>

#include "camera/base/endpoint.h"
#include "camera/engine/control/effects.h"

namespace Tarn {

class Device;
class MessageChannel;

/// Threads: any thread.
class ControlThreads {
 public:
  /// Binds the sockets.
  /// Throws: std::system_error that names address, port and reason.
  ControlThreads(std::uint32_t address, std::uint16_t port);

  /// As Abandon().
  ~ControlThreads();
  ControlThreads(const ControlThreads&) = delete;
  ControlThreads& operator=(const ControlThreads&) = delete;

  /// Starts both threads, which keep the device and the message channel alive until they end. To be called once.
  /// Throws: std::system_error.
  void Start(const std::shared_ptr<Device>& device, const std::shared_ptr<MessageChannel>& messages);

  Endpoint Local() const;

  /// Sends from the control port, at once or not at all.
  void Send(const ControlDatagram& datagram) noexcept;
  /// The device's deadline came nearer: the thread that receives has to look at it.
  void WakeReceiving() noexcept;
  /// There are listeners to call.
  void WakeCalling() noexcept;

  /// Ends both threads and waits for them, unless it is called on one of them. A listener that does not
  /// return within five seconds is no longer waited for; its thread ends by itself. Idempotent.
  void Stop();

  /// Tells the threads to end, without waiting.
  void Abandon() noexcept;

 private:
  class Shared;
  std::shared_ptr<Shared> shared_;  // with the threads themselves
};

}  // namespace Tarn
