#pragma once

/// What follows from an input of the control plane: to be carried out by whoever gave the input, in this order.

#include <array>
#include <cstdint>
#include <variant>
#include <vector>

#include "camera/base/bytes.h"
#include "camera/base/endpoint.h"
#include "camera/engine/control/event_sender.h"
#include "camera/engine/stream/stream_config.h"
#include "camera/wire/event_command.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

/// A datagram that leaves from the control port.
struct ControlDatagram {
  ControlDatagram() {}  // NOLINT: the buffer is filled by its writer

  ByteView Bytes() const { return ByteView(buffer).first(size); }

  Endpoint destination;
  std::size_t size = 0;
  std::array<std::uint8_t, kMaxControlDatagram> buffer;
};

/// The client opened the stream channel: block ids begin anew.
struct StreamOpened {};
/// Images are accepted from now on.
struct StreamBegins {};
/// Images are accepted no more.
struct StreamEnds {
  bool send_accepted = false;  ///< those that were accepted still go out; else they are dropped
};
/// Which frame events the client wants.
struct FrameNotification {
  bool starts = false;
  bool ends = false;
};
/// Something happened that the client wants to hear of.
struct EventReport {
  EventItem item;
  std::vector<std::uint8_t> data;
};

/// For the stream channel or the message channel.
using ChannelOrder = std::variant<StreamConfig, StreamOpened, StreamBegins, StreamEnds, ResendRequest,
                                  EventChannelConfig, FrameNotification, EventReport>;

/// What happens to a server. The values cross the C line; capi/ asserts that they agree with its headers.
enum class ServerEvent : std::int32_t {
  Connected = 0,
  Disconnected = 1,
  AcquisitionStart = 2,
  AcquisitionStop = 3,
  ImageSnapped = 4,
};

struct Effects {
  /// Before any other input is given: their order is that of what happened.
  std::vector<ChannelOrder> channels;
  std::vector<ServerEvent> server_events;
  /// At any time later.
  std::vector<ControlDatagram> datagrams;
  /// A test packet of the stream, behind the datagrams.
  bool test_packet = false;

  /// Keeps the memory, for the next input.
  void Clear() {
    channels.clear();
    server_events.clear();
    datagrams.clear();
    test_packet = false;
  }
};

}  // namespace Tarn
