// A conversation with a whole device while it streams: clients send commands, images are sent between them, and
// what leaves its sockets is caught and read. Each piece is | unused, what, which client | length | bytes |, where
// `what` is one of Step.
//
// The device stays the same for all inputs, as a real one does for its clients: each run takes control away
// and puts the registers back. What it keeps across clients on purpose, say user sets, it keeps across
// inputs.

#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "camera/base/engine_error.h"
#include "camera/device/device.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"
#include "camera/net/owned_fd.h"
#include "fuzz/fuzzed_tree.h"

namespace {

using namespace Tarn;

constexpr std::uint32_t kAddress = 0x7F00'0001;
constexpr Endpoint kClients[] = {{0x7F00'0002, 50000}, {0x7F00'0003, 50000}};
/// Where the seeds have stream and events sent to.
constexpr std::uint16_t kStreamSink = 50001;
constexpr std::uint16_t kEventSink = 50002;

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

/// A client's end of a channel.
class Sink {
 public:
  explicit Sink(Endpoint at) : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
    const sockaddr_in address = At(at);
    Require(bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
  }

  void Send(ByteView bytes, Endpoint to) {
    const sockaddr_in address = At(to);
    sendto(socket_.Get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address),
           sizeof address);
  }

  /// False when nothing comes within a tenth of a second.
  bool Wait() {
    pollfd ready{socket_.Get(), POLLIN, 0};
    return ::poll(&ready, 1, 100) == 1;
  }

  /// Calls `use(datagram, source port)` for all that have come.
  template <class Use>
  void Drain(Use&& use) {
    std::array<std::uint8_t, 65536> buffer;
    for (;;) {
      sockaddr_in from{};
      socklen_t length = sizeof from;
      const ssize_t size = recvfrom(socket_.Get(), buffer.data(), buffer.size(), 0,
                                    reinterpret_cast<sockaddr*>(&from), &length);
      if (size < 0) return;
      use(ByteView(buffer).first(static_cast<std::size_t>(size)), ntohs(from.sin_port));
    }
  }

 private:
  static sockaddr_in At(Endpoint endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(endpoint.address);
    address.sin_port = htons(endpoint.port);
    return address;
  }

  OwnedFd socket_;
};

void CheckStreamPacket(ByteView packet) {
  constexpr std::size_t kLargest = 16000 - 20 - 8;
  Require(packet.size() <= kLargest);
  ByteReader in(packet);
  // A test packet is zeros, of which a header can be read as well.
  Require(StreamHeader::Decode(in).has_value());
}

CommandHeader CheckEvent(ByteView command) {
  ByteReader in(command);
  const auto header = CommandHeader::Decode(in);
  Require(header && (header->command == Command::Event || header->command == Command::EventData));
  Require(header->length == in.Rest().size() && command.size() <= kMaxControlDatagram);
  return *header;
}

/// The device, its program, and the two clients' sockets.
class Bench {
 public:
  Bench() {
    {
      const NodeLock lock(device_->Tree());
      number_ = AddUsersNodes(device_->Tree());
      for (const NodePtr& node : {number_, device_->Tree().Find("ActionCount1")}) {
        node->listeners.push_back(
            std::make_shared<const NodeListener>(NodeListener{NodeEvent::Write, Listen, this, 1}));
      }
    }
    device_->SetResendDepth(kResendDepth);
    device_->Start(kAddress);
    const NodeLock lock(device_->Tree());
    const SparseMemory& memory = device_->Tree().Memory();
    stream_port_ = static_cast<std::uint16_t>(memory.Load32(Bootstrap::kStreamSourcePort));
    message_port_ = static_cast<std::uint16_t>(memory.Load32(Bootstrap::kMessageSourcePort));
    beginning_.emplace(device_->Tree());
  }

  /// As after the last client left.
  void Reset() {
    Leave();
    Require(device_->Remote() == Endpoint{} && !device_->AcquisitionActive());
    const NodeLock lock(device_->Tree());
    beginning_->Restore();
  }

  void Take(Step step, std::size_t client, ByteView bytes) {
    switch (step) {
      case Step::Command:
        Say(client, bytes);
        break;
      case Step::Image:
        SendImage(bytes);
        break;
      case Step::Acknowledge:
        Acknowledge(bytes);
        break;
      case Step::Store:
        Store(bytes);
        break;
    }
    // A client may have the stream sent to where it takes events or answers, and the other way round.
    stream_sink_.Drain([&](ByteView packet, std::uint16_t port) {
      if (port == stream_port_) CheckStreamPacket(packet);
    });
    event_sink_.Drain([&](ByteView datagram, std::uint16_t port) {
      if (port == message_port_) last_event_ = CheckEvent(datagram);
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
  void Say(std::size_t client, ByteView datagram) {
    clients_[client].Send(datagram, {kAddress, kControlPort});
    std::array<std::uint8_t, 12> last{};
    ByteWriter out(last);
    CommandHeader{CommandFlag::kAckRequired, Command::ReadReg, 4, ++last_id_}.Encode(out);
    out.Put(Bootstrap::kHeartbeatTimeout);
    bool answered = false;
    for (int tries = 0; !answered; ++tries) {
      Require(tries < 100);
      clients_[client].Send(last, {kAddress, kControlPort});
      if (!clients_[client].Wait()) continue;
      clients_[client].Drain([&](ByteView answer, std::uint16_t port) {
        if (port != kControlPort) return;
        ByteReader in(answer);
        const auto ack = AckHeader::Decode(in);
        Require(ack && ack->length == in.Rest().size());
        answered = answered || (ack->ack_id == last_id_ && ack->acknowledge == 0x0081);
      });
    }
  }

  void Leave() {
    for (std::size_t client = 0; client < clients_.size(); ++client) {
      std::array<std::uint8_t, 16> datagram{};
      ByteWriter out(datagram);
      CommandHeader{CommandFlag::kAckRequired, Command::WriteReg, 8, ++last_id_}.Encode(out);
      out.Put(Bootstrap::kControlPrivilege);
      Say(client, datagram);
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
    std::array<std::uint8_t, AckHeader::kSize> proper;
    ByteWriter out(proper);
    AckHeader ack;
    ack.acknowledge = static_cast<std::uint16_t>(static_cast<std::uint16_t>(last_event_.command) + 1);
    ack.ack_id = last_event_.request_id;
    ack.Encode(out);
    event_sink_.Send(bytes.empty() ? proper : bytes, {kAddress, message_port_});
  }

  /// The program's own store, of which the client may want to be told.
  void Store(ByteView bytes) {
    ByteReader in(bytes);
    {
      const NodeLock lock(device_->Tree());
      WriteInteger(*number_, in.Take<std::uint8_t>());
    }
    device_->OnStored();
  }

  const std::shared_ptr<Device> device_ =
      Device::Create(SensorFormat{0x0108'0001, "Mono8", kWidth, kHeight, true});
  NodePtr number_;
  std::uint16_t stream_port_ = 0;  // from which they come
  std::uint16_t message_port_ = 0;
  std::optional<TreeContent> beginning_;
  Sink stream_sink_{{kClients[0].address, kStreamSink}};
  Sink event_sink_{{kClients[0].address, kEventSink}};
  std::array<Sink, 2> clients_{Sink(kClients[0]), Sink(kClients[1])};
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
  ByteReader in(ByteView(data, size));
  while (in.Rest().size() >= 3) {
    const unsigned how = in.Take<std::uint8_t>();
    const std::size_t length = std::min<std::size_t>(in.Take<std::uint16_t>(), in.Rest().size());
    bench.Take(static_cast<Step>(how >> 2 & 3), how & 1, in.TakeBytes(length));
  }
  return 0;
}
