// The control plane under any order of inputs: datagrams of two clients, time that passes, a program that stores,
// and listeners that are called at once, later, or never. Each piece is
// | pause, what, broadcast, which client | length | bytes |, where `what` is one of Step.
//
// The device stays the same for all inputs, as a real one does for its clients.

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "camera/engine/control/control_plane.h"
#include "camera/engine/control/publication.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"
#include "fuzz/fuzzed_tree.h"

namespace {

using namespace Tarn;

constexpr Endpoint kClients[] = {{0x7F00'0001, 50000}, {0x7F00'0002, 50000}};
/// More waits nowhere: 64 of the primary application, 8 of others, a datagram for each, and those delayed.
constexpr std::size_t kMaxDatagrams = 200;

enum class Step : unsigned { Command, CommandAndCalls, Calls, Store };

class Bench {
 public:
  Bench() {
    AddStandardFeatures(tree_, format_);
    FillConstants(tree_.Memory(), true);
    number_ = AddUsersNodes(tree_);
    for (const NodePtr& node : {number_, tree_.Find("ActionCount1")}) {
      for (const NodeEvent event : {NodeEvent::Read, NodeEvent::Write}) {
        node->listeners.push_back(std::make_shared<const NodeListener>(NodeListener{event, Listen, this, 1}));
      }
    }
    NetworkIdentity network;
    network.address = kClients[0].address;
    network.mask = 0xFF00'0000;
    network.max_packet_size = 1500;
    Publish(plane_.Functions(), network, true, true, {1, 0, 0});
    beginning_.emplace(tree_);
  }

  void Begin() {
    now_ += std::chrono::hours(1);
    plane_.Close(now_);
    effects_.Clear();
    beginning_->Restore();
    plane_.Open({40001, 40002});
    sent_.clear();
  }

  void End() {
    Call();
    Require(!plane_.HasCalls());
    plane_.Close(now_);
    Require(!plane_.Privilege().Held() && !plane_.Functions().TheAcquisition().Active());
    Require(plane_.Deadline() == Instant::max());
  }

  void Pass(std::chrono::milliseconds time) {
    now_ += time;
    plane_.Advance(now_);
    Require(plane_.Deadline() > now_);
    CheckEffects();
  }

  void Take(Step step, Endpoint client, bool broadcast, ByteView bytes) {
    if (step == Step::Command || step == Step::CommandAndCalls) Receive(client, broadcast, bytes);
    if (step == Step::Calls) CallNext();
    if (step == Step::CommandAndCalls) Call();
    if (step == Step::Store) Store(bytes);
    CheckEffects();
  }

 private:
  struct Sent {
    Endpoint client;
    std::vector<std::uint8_t> bytes;
  };

  /// A listener may do anything, also to the node that was written.
  static void Listen(void* context) {
    auto& bench = *static_cast<Bench*>(context);
    WriteInteger(*bench.number_, ReadInteger(*bench.number_));
    bench.plane_.OnStored(bench.now_);
  }

  void Receive(Endpoint client, bool broadcast, ByteView datagram) {
    if (sent_.size() < 256) sent_.push_back({client, {datagram.begin(), datagram.end()}});
    const Endpoint primary = plane_.Privilege().Primary();
    const std::vector<std::uint8_t> before = TreeContent::Controlled(tree_);
    plane_.Receive({datagram, client, broadcast, now_});
    // Without control one may wish for control, and fire actions. While nobody has it, one command may take it,
    // use it and give it back.
    const bool kept = primary != Endpoint{} && plane_.Privilege().Primary() == primary;
    if (kept && client != primary) Require(TreeContent::Controlled(tree_) == before);
  }

  /// The listeners of one step.
  bool CallNext() {
    const Listeners listeners = plane_.NextCalls(now_);
    for (const auto& listener : listeners) listener->call(listener->context);
    return !listeners.empty();
  }
  void Call() {
    for (int i = 0; CallNext(); ++i) Require(i < 100'000);
  }

  void Store(ByteView bytes) {
    ByteReader in(bytes);
    WriteInteger(*number_, in.Take<std::uint8_t>());
    if (in.Take<std::uint8_t>() % 4 == 0) WriteInteger(*tree_.Find("GevCCP"), 0);
    plane_.OnStored(now_);
  }

  /// Every answer is one to a command of its client, and the register shows who is in control.
  void CheckEffects() {
    Require(effects_.datagrams.size() <= kMaxDatagrams);
    for (const ControlDatagram& datagram : effects_.datagrams) {
      const auto asked = std::ranges::find_if(sent_, [&](const Sent& sent) {
        return sent.client.port == datagram.destination.port && Answers(datagram.Bytes(), sent.bytes);
      });
      Require(asked != sent_.end() || sent_.size() == 256);
    }
    effects_.Clear();
    const ControlPrivilege& privilege = plane_.Privilege();
    Require(tree_.Memory().Load32(Bootstrap::kControlPrivilege) == privilege.Register());
    Require(tree_.Memory().Load32(Bootstrap::kPrimaryAddress) == privilege.Primary().address);
    Require(!plane_.Functions().TheAcquisition().Active() || privilege.Held());
  }

  static bool Answers(ByteView answer, ByteView command) {
    ByteReader ack_bytes(answer);
    ByteReader command_bytes(command);
    const auto ack = AckHeader::Decode(ack_bytes);
    const auto header = CommandHeader::Decode(command_bytes);
    if (!ack || !header || (header->flags & CommandFlag::kAckRequired) == 0) return false;
    return ack->ack_id == header->request_id && ack->length == ack_bytes.Rest().size() &&
           answer.size() <= kMaxControlDatagram - 28;
  }

  const SensorFormat format_{0x0108'0001, "Mono8", 640, 480, true};
  FeatureTree tree_;
  Effects effects_;
  DeviceClock clock_{Instant{}};
  ControlPlane plane_{tree_, format_, clock_, effects_, 1};
  NodePtr number_;
  std::optional<TreeContent> beginning_;
  Instant now_{std::chrono::seconds(1)};
  std::vector<Sent> sent_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Bench& bench = *new Bench();
  bench.Begin();
  ByteReader in(ByteView(data, size));
  while (in.Rest().size() >= 3) {
    const unsigned how = in.Take<std::uint8_t>();
    const std::size_t length = std::min<std::size_t>(in.Take<std::uint16_t>(), in.Rest().size());
    bench.Pass(std::chrono::milliseconds((how >> 4) * 100));
    bench.Take(static_cast<Step>(how >> 2 & 3), kClients[how & 1], (how & 2) != 0, in.TakeBytes(length));
  }
  bench.End();
  return 0;
}
