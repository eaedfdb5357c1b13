#pragma once

/// The threads that answer clients: one hears, answers and watches the clock; another executes the commands
/// whose nodes have listeners, so that a slow listener keeps nobody else waiting.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "camera/base/clock.h"
#include "camera/base/endpoint.h"
#include "camera/device/side_channel.h"
#include "camera/engine/control/control_channel.h"

namespace Tarn {

/// The device as its control threads see it.
/// Threads: called from both, at the same time.
class ControlService {
 public:
  virtual ~ControlService() = default;

  /// A datagram came in: decides when and where it is executed.
  virtual Reception Arrived(const ControlRequest& request) = 0;
  /// Executes it, on either thread.
  /// \return bytes written to `answer` (kMaxControlDatagram bytes); 0 for silence
  virtual std::size_t Execute(const ControlRequest& request, MutableByteView answer) = 0;
  /// What had to wait until the answer was sent.
  virtual void Answered() = 0;

  /// When Tick must be called next; the end of time for never.
  virtual Instant Deadline() = 0;
  /// \param waiting  clients whose commands wait or are being executed: their silence is our doing
  /// \return whether Call has something to do
  virtual bool Tick(Instant now, const std::vector<Endpoint>& waiting) = 0;
  /// Calls the listeners of what happened without a command. Only where listeners may be called.
  virtual void Call() = 0;

  /// How long a command may take before its client is asked for patience; nothing when the client forbids
  /// that.
  virtual std::optional<std::chrono::milliseconds> PendingAfter() = 0;
};

/// Threads: Stop and Abandon any thread.
class ControlServer {
 public:
  /// Binds the sockets.
  /// Throws: std::system_error that names address, port and reason.
  ControlServer(std::uint32_t address, std::uint16_t port);

  /// As Abandon().
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Starts both threads, which keep the service and the side channel alive until they end. To be called
  /// once.
  /// \param side  served by the thread that hears
  /// Throws: std::system_error.
  void Start(const std::shared_ptr<ControlService>& service,
             const std::shared_ptr<SideChannel>& side = nullptr);

  Endpoint Local() const;

  /// Ends both threads and waits for them, unless it is called on one of them. A listener that does not
  /// return within five seconds is no longer waited for; its thread ends by itself. Idempotent.
  void Stop();

  /// Tells the threads to end, without waiting.
  void Abandon() noexcept;

 private:
  class Threads;
  std::shared_ptr<Threads> threads_;  // shared with the threads themselves
};

}  // namespace Tarn
