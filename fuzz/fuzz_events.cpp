// The device's end of the message channel, driven by any order of settings, events, answers and pauses: what
// it sends is well-formed and in the order of the events, nothing is repeated more often than the client
// asked for, and nothing keeps it from ever falling silent.

#include <memory>

#include "camera/engine/control/event_sender.h"
#include "fuzz/fuzz.h"

namespace {

using namespace Tarn;

constexpr Endpoint kClient{0x7F00'0001, 50000};
constexpr Endpoint kStranger{0x7F00'0002, 50000};

enum class Step : unsigned { Configure, Push, Hear, Pass };

class Channel {
 public:
  void Take(Step step, unsigned how, ByteReader& in) {
    if (step == Step::Configure) Configure(how, in);
    if (step == Step::Push) Push(in);
    if (step == Step::Hear) Hear(how, in);
    if (step == Step::Pass) now_ += std::chrono::milliseconds(how * 8);
    Send();
  }

 private:
  void Configure(unsigned how, ByteReader& in) {
    EventChannelConfig config;
    if ((how & 1) != 0) config.destination = kClient;
    config.extended_ids = (how & 2) != 0;
    config.timeout = std::chrono::milliseconds(in.Take<std::uint8_t>());
    config.retries = in.Take<std::uint8_t>() % 4u;
    sender_->Configure(config);
  }

  void Push(ByteReader& in) {
    const std::size_t length = in.Take<std::uint16_t>() % (2 * kMaxEventData);
    // The time says which event a command tells of.
    sender_->Push({0x9000, 0, 1, ++pushed_}, in.TakeBytes(std::min(length, in.Rest().size())));
  }

  void Hear(unsigned how, ByteReader& in) {
    if ((how & 1) != 0) return sender_->Receive(AnswerTo(last_), kClient);
    const std::size_t length = std::min<std::size_t>(how >> 2, in.Rest().size());
    sender_->Receive(in.TakeBytes(length), (how & 2) != 0 ? kStranger : kClient);
  }

  /// Takes everything that is to be sent now.
  void Send() {
    // One that is repeated or given up, then all that wait.
    std::size_t left = EventSender::kMaxWaiting + 2;
    for (ByteView command = sender_->Next(now_); !command.empty(); command = sender_->Next(now_)) {
      Check(command);
      Require(--left > 0);
    }
    Require(sender_->Deadline() > now_);
  }

  void Check(ByteView command) {
    const auto header = HeaderOf<CommandHeader>(command);
    const bool extended = (header.flags & CommandFlag::kExtendedIds) != 0;
    const std::size_t size = EventItem::Size(extended);
    Require(sender_->Config().IsOpen() && header.request_id != 0 && header.length >= size);
    Require((header.command == Command::EventData) == (header.length > size));
    const auto event = LoadBe<std::uint64_t>(&command[CommandHeader::kSize + size - 8]);
    if (header.request_id == last_.request_id && event == last_event_) {
      Require(repeats_left_-- > 0);
    } else {
      Require(event > last_event_ && event <= pushed_ && extended == sender_->Config().extended_ids);
      repeats_left_ = sender_->Config().retries;
    }
    last_ = header;
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
    channel.Take(static_cast<Step>(first & 3), first >> 2, in);
  }
  return 0;
}
