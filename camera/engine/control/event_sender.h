#pragma once

/// The device's end of the message channel: events that wait, the one that is to be acknowledged, repeats.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "camera/base/clock.h"
#include "camera/base/endpoint.h"
#include "camera/wire/event_command.h"

namespace Tarn {

/// What the client set up in the message channel's registers.
struct EventChannelConfig {
  Endpoint destination;                  ///< incomplete: the channel is closed
  std::chrono::milliseconds timeout{0};  ///< how long to wait for an acknowledge; 0: none is asked for
  std::uint32_t retries = 0;             ///< repeats of a command that nobody acknowledges
  bool extended_ids = false;             ///< block ids have 64 bits

  bool IsOpen() const { return destination.address != 0 && destination.port != 0; }
};

/// Since the device started.
struct EventCounters {
  std::uint64_t sent = 0;      ///< events, repeats not counted
  std::uint64_t repeated = 0;  ///< commands sent again
  std::uint64_t lost = 0;      ///< events that were not acknowledged, repeats included
  std::uint64_t dropped = 0;   ///< events for which there was no room
};

/// Sends one event after the other:
///
///   | state   | Next, nothing queued | Next, something queued | acknowledged | Next, too late           |
///   |---------+----------------------+------------------------+--------------+--------------------------|
///   | idle    | idle                 | awaiting [1]           | -            | -                        |
///   | awaiting | awaiting            | awaiting               | idle         | awaiting: a repeat, or,  |
///   |         |                      |                        |              | none left, as idle       |
///
/// [1] stays idle where no acknowledge is asked for.
///
/// Configure to a closed channel leads back to idle and forgets what waits. Allocates nothing after its
/// construction, so that events can be told from where images are sent.
/// Threads: one at a time.
class EventSender {
 public:
  /// Events that can wait; further ones are dropped, since a client can rather do without the newest than
  /// without the beginning of what happened.
  static constexpr std::size_t kMaxWaiting = 64;

  void Configure(const EventChannelConfig& config);
  const EventChannelConfig& Config() const { return config_; }

  /// Queues an event. Does nothing while the channel is closed.
  /// \param data  what goes with it, kMaxEventData bytes at most
  void Push(const EventItem& item, ByteView data);

  /// The command that is to be sent now; empty when there is none. To be called until it is empty, when an
  /// event was pushed or acknowledged and at the deadline.
  /// Owns: the bytes stay until the next call.
  ByteView Next(Instant now);

  /// A datagram that came in where the commands leave. Counts when it answers the last command by its id and
  /// comes from where that went, or, for a multicast group, from anywhere; its status does not matter.
  void Receive(ByteView datagram, Endpoint source);

  /// When Next must be called without anything else happening; Instant::max() for never.
  Instant Deadline() const { return awaiting_ ? deadline_ : Instant::max(); }

  const EventCounters& Counters() const { return counters_; }

 private:
  struct Waiting {
    EventItem item;
    std::size_t data_size = 0;
    std::array<std::uint8_t, kMaxEventData> data;
  };

  bool MayAcknowledge(Endpoint source) const;
  ByteView Repeat(Instant now);
  ByteView SendFirst(Instant now);

  EventChannelConfig config_;
  std::array<Waiting, kMaxWaiting> waiting_;  ///< a ring
  std::size_t first_ = 0;
  std::size_t count_ = 0;

  std::array<std::uint8_t, kMaxControlDatagram> command_;  ///< sent last
  std::size_t command_size_ = 0;
  std::uint16_t last_id_ = 0;  ///< 0 is none: it is never used
  Command code_ = Command::Event;
  bool awaiting_ = false;
  Instant deadline_{};
  std::uint32_t repeats_left_ = 0;
  EventCounters counters_;
};

}  // namespace Tarn
