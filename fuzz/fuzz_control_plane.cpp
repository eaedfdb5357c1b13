// The control plane under any order of inputs: datagrams of two clients, time that passes, a program that stores,
// and listeners that are called at once, later, or never. In the `how` of a piece stand
// | pause 4 | Step 2 | broadcast 1 | which client 1 |.
//
// The device stays the same for all inputs, as a real one does for its clients.

#include <set>
#include <utility>

#include "camera/engine/control/control_plane.h"
#include "camera/engine/control/publication.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"
#include "fuzz/fuzzed_tree.h"

namespace {

using namespace Tarn;

constexpr Endpoint kClients[] = {{0x7F00'0001, 50000}, {0x7F00'0002, 50001}};
/// More waits nowhere: 64 of the primary application, 8 of others, a datagram for each, and those delayed.
constexpr std::size_t kMaxDatagrams = 200;

enum class Step : unsigned { Command, CommandAndCalls, Calls, Store };

class Bench {
 public:
  Bench() {
    AddStandardFeatures(tree_, format_);
    FillConstants(tree_.Memory(), true);
    number_ = AddUsersNodes(tree_, Listen, this);
    NetworkIdentity network;
    network.address = kClients[0].address;
    network.mask = 0xFF00'0000;
    network.max_packet_size = 1500;
    Publish(plane_.Functions(), network, true, true, {1, 0, 0});
    beginning_ = Content(tree_);
  }

  void Begin() {
    now_ += std::chrono::hours(1);
    plane_.Close(now_);
    effects_.Clear();
    Restore(tree_, beginning_);
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

  void Take(unsigned how, ByteView bytes) {
    now_ += std::chrono::milliseconds((how >> 4) * 100);
    plane_.Advance(now_);
    Require(plane_.Deadline() > now_);
    CheckEffects();
    const auto step = static_cast<Step>(how >> 2 & 3);
    if (step == Step::Command || step == Step::CommandAndCalls) {
      Receive(kClients[how & 1], (how & 2) != 0, bytes);
    }
    if (step == Step::Calls) CallNext();
    if (step == Step::CommandAndCalls) Call();
    if (step == Step::Store) Store(bytes);
    CheckEffects();
  }

 private:
  /// A listener may do anything, also to the node that was written.
  static void Listen(void* context) {
    auto& bench = *static_cast<Bench*>(context);
    WriteInteger(*bench.number_, ReadInteger(*bench.number_));
    bench.plane_.OnStored(bench.now_);
  }

  void Receive(Endpoint client, bool broadcast, ByteView datagram) {
    ByteReader in(datagram);
    const auto command = CommandHeader::Decode(in);
    if (command && (command->flags & CommandFlag::kAckRequired) != 0) {
      sent_.emplace(client.port, command->request_id);
    }
    const Endpoint primary = plane_.Privilege().Primary();
    const std::vector<std::uint8_t> before = ControlledContent(tree_);
    plane_.Receive({datagram, client, broadcast, now_});
    // Without control one may wish for control, and fire actions. While nobody has it, one command may take it,
    // use it and give it back.
    const bool kept = primary != Endpoint{} && plane_.Privilege().Primary() == primary;
    if (kept && client != primary) Require(ControlledContent(tree_) == before);
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
      const auto ack = HeaderOf<AckHeader>(datagram.Bytes());
      Require(sent_.contains({datagram.destination.port, ack.ack_id}));
    }
    effects_.Clear();
    const ControlPrivilege& privilege = plane_.Privilege();
    Require(tree_.Memory().Load32(Bootstrap::kControlPrivilege) == privilege.Register());
    Require(tree_.Memory().Load32(Bootstrap::kPrimaryAddress) == privilege.Primary().address);
    Require(!plane_.Functions().TheAcquisition().Active() || privilege.Held());
  }

  const SensorFormat format_{0x0108'0001, "Mono8", 640, 480, true};
  FeatureTree tree_;
  Effects effects_;
  DeviceClock clock_{Instant{}};
  ControlPlane plane_{tree_, format_, clock_, effects_, 1};
  NodePtr number_;
  std::vector<std::uint8_t> beginning_;
  Instant now_{std::chrono::seconds(1)};
  std::set<std::pair<std::uint16_t, std::uint16_t>> sent_;  ///< clients' ports, and ids that want an answer
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Bench& bench = *new Bench();
  bench.Begin();
  ForEachPiece({data, size}, [](unsigned how, ByteView bytes) { bench.Take(how, bytes); });
  bench.End();
  return 0;
}
