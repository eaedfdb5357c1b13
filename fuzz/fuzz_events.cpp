// The device's end of the message channel, driven by any order of settings, events, answers and pauses: what
// it sends is well-formed and in the order of the events, nothing is repeated more often than the client
// asked for, and nothing keeps it from ever falling silent.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

#include "camera/engine/control/event_sender.h"

namespace {

using namespace Tarn;

constexpr Endpoint kClient{0x7F00'0001, 50000};
constexpr Endpoint kStranger{0x7F00'0002, 50000};

enum class Step : unsigned { Configure, Push, Hear, Pass };

void Require(bool holds) {
  if (!holds) std::abort();
}

class Channel {
 public:
  /// \param how  of Step::Configure: what the channel is set to
  void Configure(unsigned how, ByteReader& in) {
    EventChannelConfig config;
    if ((how & 1) != 0) config.destination = kClient;
    config.extended_ids = (how & 2) != 0;
    config.timeout = std::chrono::milliseconds(in.Take<std::uint8_t>());
    config.retries = in.Take<std::uint8_t>() % 4u;
    sender_->Configure(config);
  }

  void Push(ByteView data) {
    // The time says which event a command tells of.
    sender_->Push({0x9000, 0, 1, ++pushed_}, data);
  }

  void Hear(bool stranger, ByteView datagram) { sender_->Receive(datagram, stranger ? kStranger : kClient); }

  /// An answer to the last command, as a client would give it.
  void Acknowledge() {
    std::array<std::uint8_t, AckHeader::kSize> bytes;
    ByteWriter out(bytes);
    AckHeader ack;
    ack.acknowledge = static_cast<std::uint16_t>(last_.command) + 1;
    ack.ack_id = last_.request_id;
    ack.Encode(out);
    sender_->Receive(bytes, kClient);
  }

  void Pass(std::chrono::milliseconds time) { now_ += time; }

  /// Takes everything that is to be sent now.
  void Send() {
    // One that is repeated or given up, then all that wait.
    for (std::size_t i = 0; i <= EventSender::kMaxWaiting + 1; ++i) {
      const ByteView command = sender_->Next(now_);
      if (command.empty()) {
        Require(sender_->Deadline() > now_);
        return;
      }
      Check(command);
    }
    std::abort();
  }

 private:
  void Check(ByteView command) {
    Require(sender_->Config().IsOpen() && command.size() <= kMaxControlDatagram);
    ByteReader in(command);
    const auto header = CommandHeader::Decode(in);
    Require(header && header->request_id != 0 && header->length == in.Rest().size());
    const bool extended = (header->flags & CommandFlag::kExtendedIds) != 0;
    Require(in.Rest().size() >= EventItem::Size(extended));
    Require((header->command == Command::EventData) == (in.Rest().size() > EventItem::Size(extended)));
    const ByteView item = in.Rest().first(EventItem::Size(extended));
    const auto event = LoadBe<std::uint64_t>(item.last(8).data());
    if (header->request_id == last_.request_id && event == last_event_) {
      Require(repeats_left_-- > 0);
    } else {
      Require(event > last_event_ && event <= pushed_ && extended == sender_->Config().extended_ids);
      repeats_left_ = sender_->Config().retries;
    }
    last_ = *header;
    last_event_ = event;
  }

  const std::unique_ptr<EventSender> sender_ = std::make_unique<EventSender>();
  Instant now_{std::chrono::seconds(1)};
  std::uint64_t pushed_ = 0;
  CommandHeader last_;
  std::uint64_t last_event_ = 0;
  std::uint32_t repeats_left_ = 0;
};

}  // namespace

// Each step is | how 6 bits, Step 2 bits | and what the step takes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Channel channel;
  ByteReader in(ByteView(data, size));
  while (in.Ok() && !in.Rest().empty()) {
    const unsigned first = in.Take<std::uint8_t>();
    const unsigned how = first >> 2;
    switch (static_cast<Step>(first & 3)) {
      case Step::Configure:
        channel.Configure(how, in);
        break;
      case Step::Push: {
        const std::size_t length = in.Take<std::uint16_t>() % (2 * kMaxEventData);
        channel.Push(in.TakeBytes(std::min(length, in.Rest().size())));
        break;
      }
      case Step::Hear:
        if ((how & 1) != 0) {
          channel.Acknowledge();
        } else {
          channel.Hear((how & 2) != 0, in.TakeBytes(std::min<std::size_t>(how >> 2, in.Rest().size())));
        }
        break;
      case Step::Pass:
        channel.Pass(std::chrono::milliseconds(how * 8));
        break;
    }
    channel.Send();
  }
  return 0;
}
