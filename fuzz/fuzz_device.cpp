// A conversation with a whole device while it streams: clients send commands, images are sent between them, and
// what leaves its sockets is caught and read. In the `how` of a piece stand
// | unused 4 | Step 2 | unused 1 | which client 1 |.
//
// The device stays the same for all inputs, as a real one does for its clients: each run takes control away
// and puts the registers back. What it keeps across clients on purpose, say user sets, it keeps across
// inputs.

#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "camera/base/engine_error.h"
#include "camera/device/device.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"
#include "camera/net/control_sockets.h"
#include "fuzz/fuzzed_tree.h"

namespace {

using namespace Tarn;

constexpr std::uint32_t kAddress = 0x7F00'0001;
constexpr std::uint32_t kClients[] = {0x7F00'0002, 0x7F00'0003};

constexpr std::size_t kWidth = 64;
constexpr std::size_t kHeight = 48;
constexpr std::size_t kResendDepth = 2;
/// One image more than the store keeps is on its way. A further one could have to wait for it, and how long
/// that takes is the client's choice.
constexpr int kMaxInFlight = kResendDepth + 1;

enum class Step : unsigned { Command, Image, Acknowledge, Store };

/// Lets a namespace of its own keep what a fuzzed client asks for away from the rest of the host.
void LeaveTheNetwork() {
  if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
    std::perror("a network namespace for fuzzing");
    std::exit(1);
  }
  const OwnedFd socket(::socket(AF_INET, SOCK_DGRAM, 0));
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  Require(ioctl(socket.Get(), SIOCSIFFLAGS, &request) == 0);
}

/// Calls `use(datagram)` for all that have come to a client from the device's port.
template <class Use>
void Drain(ControlSockets& client, std::uint16_t port, Use&& use) {
  std::array<std::uint8_t, 65536> buffer;
  while (const auto received = client.Receive(client.Fds()[0], buffer)) {
    if (received->source.port == port) use(received->bytes);
  }
}

/// A command to the register at `address`; what follows in the payload is 0.
std::vector<std::uint8_t> RegisterCommand(Command command, std::uint16_t length, std::uint16_t id,
                                          std::uint32_t address) {
  std::vector<std::uint8_t> bytes = Encoded(CommandHeader{CommandFlag::kAckRequired, command, length, id});
  bytes.resize(CommandHeader::kSize + length);
  StoreBe(&bytes[CommandHeader::kSize], address);
  return bytes;
}

void CheckStreamPacket(ByteView packet) {
  Require(packet.size() <= 16000 - kDatagramOverhead);
  ByteReader in(packet);
  // A test packet is zeros, of which a header can be read as well.
  Require(StreamHeader::Decode(in).has_value());
}

/// The device, its program, and the two clients' sockets.
class Bench {
 public:
  Bench() {
    number_ = AddUsersNodes(device_->Tree(), Listen, this);
    device_->SetResendDepth(kResendDepth);
    device_->Start(kAddress);
    const NodeLock lock(device_->Tree());
    const SparseMemory& memory = device_->Tree().Memory();
    stream_port_ = static_cast<std::uint16_t>(memory.Load32(Bootstrap::kStreamSourcePort));
    message_port_ = static_cast<std::uint16_t>(memory.Load32(Bootstrap::kMessageSourcePort));
    beginning_ = Content(device_->Tree());
  }

  /// As after the last client left.
  void Reset() {
    for (ControlSockets& client : clients_) {
      Say(client, RegisterCommand(Command::WriteReg, 8, ++last_id_, Bootstrap::kControlPrivilege));
    }
    Require(device_->Remote() == Endpoint{} && !device_->AcquisitionActive());
    const NodeLock lock(device_->Tree());
    Restore(device_->Tree(), beginning_);
  }

  void Take(unsigned how, ByteView bytes) {
    const auto step = static_cast<Step>(how >> 2 & 3);
    if (step == Step::Command) Say(clients_[how & 1], bytes);
    if (step == Step::Image) SendImage(bytes);
    if (step == Step::Acknowledge) Acknowledge(bytes);
    if (step == Step::Store) Store(bytes);
    // A client may have the stream sent to where it takes events or answers, and the other way round.
    Drain(stream_sink_, stream_port_, CheckStreamPacket);
    Drain(event_sink_, message_port_, [&](ByteView command) {
      last_event_ = HeaderOf<CommandHeader>(command);
      Require(last_event_.command == Command::Event || last_event_.command == Command::EventData);
    });
  }

 private:
  /// A listener may do anything, also to the node that was written.
  static void Listen(void* context) {
    auto& bench = *static_cast<Bench*>(context);
    const NodeLock lock(bench.device_->Tree());
    WriteInteger(*bench.number_, ReadInteger(*bench.number_));
  }

  static void Release(void* context) { --static_cast<Bench*>(context)->in_flight_; }

  /// The command, and one behind it whose answer tells that it was carried out: what needs a listener is carried
  /// out on another thread, but the commands of one client keep their order. That one is sent again where the
  /// device dropped it, since the client had asked for too much.
  void Say(ControlSockets& client, ByteView datagram) {
    client.Send(datagram, {kAddress, kControlPort});
    const auto last = RegisterCommand(Command::ReadReg, 4, ++last_id_, Bootstrap::kHeartbeatTimeout);
    pollfd ready{client.Fds()[0], POLLIN, 0};
    bool answered = false;
    for (int tries = 0; !answered; ++tries) {
      Require(tries < 100);
      client.Send(last, {kAddress, kControlPort});
      if (::poll(&ready, 1, 100) != 1) continue;  // milliseconds
      Drain(client, kControlPort, [&](ByteView answer) {
        const auto ack = HeaderOf<AckHeader>(answer);
        answered = answered || (ack.ack_id == last_id_ && ack.acknowledge == 0x0081);
      });
    }
  }

  /// An image of the size that the client chose, or of the one that the bytes say.
  void SendImage(ByteView bytes) {
    if (in_flight_ >= kMaxInFlight) return;
    ImageMemory image{kWidth, kHeight, 1, {&plane_, 1}};
    if (bytes.size() >= 2) {
      image.width = std::min<std::size_t>(bytes[0], kWidth);
      image.height = std::min<std::size_t>(bytes[1], kHeight);
    }
    ++in_flight_;
    try {
      device_->Send(image, BlockOwner(Release, this));
    } catch (const EngineError&) {
      --in_flight_;  // refused: the owner is not told
    }
  }

  /// Answers the last event as it should be, or with the bytes.
  void Acknowledge(ByteView bytes) {
    const std::vector<std::uint8_t> proper = AnswerTo(last_event_);
    event_sink_.Send(bytes.empty() ? proper : bytes, {kAddress, message_port_});
  }

  /// The program's own store, of which the client may want to be told.
  void Store(ByteView bytes) {
    {
      const NodeLock lock(device_->Tree());
      WriteInteger(*number_, ByteReader(bytes).Take<std::uint8_t>());
    }
    device_->OnStored();
  }

  const std::shared_ptr<Device> device_ =
      Device::Create(SensorFormat{0x0108'0001, "Mono8", kWidth, kHeight, true});
  NodePtr number_;
  std::uint16_t stream_port_ = 0;  // from which they come
  std::uint16_t message_port_ = 0;
  std::vector<std::uint8_t> beginning_;
  // Where the seeds have stream and events sent to, and who sends the commands.
  ControlSockets stream_sink_{kClients[0], 50001};
  ControlSockets event_sink_{kClients[0], 50002};
  ControlSockets clients_[2] = {{kClients[0], 50000}, {kClients[1], 50000}};
  std::vector<std::uint8_t> pixels_ = std::vector<std::uint8_t>(kWidth * kHeight);
  PlaneMemory plane_{pixels_.data(), 1, kWidth};
  std::atomic<int> in_flight_ = 0;  // accepted images whose owner was not told
  CommandHeader last_event_;
  std::uint16_t last_id_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  LeaveTheNetwork();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Never destroyed: the device's threads run until the process ends.
  static Bench& bench = *new Bench();
  bench.Reset();
  ForEachPiece({data, size}, [](unsigned how, ByteView bytes) { bench.Take(how, bytes); });
  return 0;
}
