#pragma once

/// The message channel: tells the client what happens, over a socket of its own.

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

#include "camera/base/mutex.h"
#include "camera/device/device_clock.h"
#include "camera/device/frame_observer.h"
#include "camera/device/side_channel.h"
#include "camera/engine/control/event_sender.h"
#include "camera/net/message_socket.h"
#include "camera/net/poller.h"

namespace Tarn {

/// An event leaves from the thread that tells it, unless an earlier one is still to be acknowledged; the
/// thread that hears commands takes the acknowledges and sends what waited.
/// Threads: any thread. Waits for nothing longer than a datagram takes to the system.
class MessageChannel final : public SideChannel, public FrameObserver {
 public:
  /// Throws: std::system_error when a socket cannot be had on the address.
  MessageChannel(std::uint32_t address, std::shared_ptr<const DeviceClock> clock);

  std::uint16_t SourcePort() const noexcept { return socket_.LocalPort(); }

  /// What the client set up; a closed channel forgets what waits.
  void Configure(const EventChannelConfig& config);
  /// Whether frames are told. At first none are.
  void TellFrames(bool starts, bool ends);

  /// Tells an event that happened just now. Does nothing while the channel is closed.
  /// \param data  what goes with it, where it fits into a datagram
  void Tell(std::uint16_t number, ByteView data);

  EventCounters Counters() const;

  // FrameObserver
  void FrameStarts(std::uint64_t block_id) noexcept override;
  void FrameEnds(std::uint64_t block_id) noexcept override;

  // SideChannel
  std::array<int, 2> Fds() const override { return {socket_.Fd(), wakeup_.Fd()}; }
  Instant Deadline() override;
  void Serve() override;

 private:
  void Tell(EventItem item, ByteView data);
  void SendDue() TARN_REQUIRES(mutex_);

  const std::shared_ptr<const DeviceClock> clock_;
  MessageSocket socket_;
  Wakeup wakeup_;  ///< ends the hearing thread's sleep, since the deadline came nearer
  std::atomic<bool> tells_starts_ = false;  // written by TellFrames, read where frames are sent
  std::atomic<bool> tells_ends_ = false;    // the same

  mutable Mutex mutex_;
  EventSender sender_ TARN_GUARDED_BY(mutex_);
};

}  // namespace Tarn
