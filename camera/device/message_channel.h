#pragma once

/// The message channel: tells the client what happens, over a socket of its own.

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

#include "camera/base/mutex.h"
#include "camera/device/frame_observer.h"
#include "camera/engine/control/device_clock.h"
#include "camera/engine/control/event_sender.h"
#include "camera/net/message_socket.h"
#include "camera/net/poller.h"

namespace Tarn {

/// An event leaves from the thread on which it happened, unless an earlier one is still to be acknowledged;
/// the thread that receives commands takes the acknowledges and sends what waited.
/// Threads: any thread. Waits for nothing longer than a datagram takes to the system.
class MessageChannel final : public FrameObserver {
 public:
  /// Throws: std::system_error when a socket cannot be had on the address.
  MessageChannel(std::uint32_t address, std::shared_ptr<const DeviceClock> clock);

  std::uint16_t SourcePort() const noexcept { return socket_.LocalPort(); }

  /// What the client set up; a closed channel forgets what waits.
  void Configure(const EventChannelConfig& config);
  /// Which frame events are sent. At first none are.
  void NotifyFrames(bool starts, bool ends);

  /// Queues an event, to be sent with the next SendDue(). Does nothing while the channel is closed.
  /// \param data  what goes with it
  void Queue(const EventItem& item, ByteView data);
  /// Sends what may be sent now.
  void SendDue();

  EventCounters Counters() const;

  // FrameObserver
  void FrameStarts(std::uint64_t block_id) noexcept override;
  void FrameEnds(std::uint64_t block_id) noexcept override;

  // For the thread that receives.
  /// Descriptors whose readiness is answered with Serve(); the same ones always.
  std::array<int, 2> Fds() const { return {socket_.Fd(), wakeup_.Fd()}; }
  /// When Serve() must be called next; Instant::max() for never.
  Instant Deadline() const;
  void Serve();

 private:
  void SendFrame(std::uint16_t number, std::uint64_t block_id);
  void SendDueLocked() TARN_REQUIRES(mutex_);

  const std::shared_ptr<const DeviceClock> clock_;
  MessageSocket socket_;
  Wakeup wakeup_;  ///< ends the receiving thread's sleep, since the deadline came nearer
  std::atomic<bool> notifies_starts_ = false;  // written by NotifyFrames, read where frames are sent
  std::atomic<bool> notifies_ends_ = false;    // the same

  mutable Mutex mutex_;
  EventSender sender_ TARN_GUARDED_BY(mutex_);
};

}  // namespace Tarn
