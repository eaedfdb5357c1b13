// A whole conversation: the bytes are cut into datagrams of two clients, with time passing in between, and go
// to the device's end of the control protocol. Each piece is | which client, broadcast, pause | length |
// datagram |.

#include <algorithm>
#include <array>
#include <vector>

#include "camera/base/engine_error.h"
#include "camera/engine/control/control_channel.h"
#include "camera/engine/features/standard_features.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/wire/bootstrap.h"
#include "fuzz/fuzzed_tree.h"

namespace {

using namespace Tarn;

constexpr Endpoint kClients[] = {{0x7F00'0001, 50000}, {0x7F00'0002, 50000}};

/// Does what a device does: executed commands are over at once.
class Actions final : public ControlActions {
 public:
  explicit Actions(const RegisterFile& registers) : registers_(registers) {}

  bool Streaming() const override { return false; }
  void BeforeRead(std::uint32_t address, std::uint32_t length) override {
    registers_.Concerned(address, length);
  }
  void AfterWrite(std::uint32_t address, std::uint32_t length) override {
    granted_ = granted_ || address == Bootstrap::kControlPrivilege;
    for (const NodePtr& node : registers_.Concerned(address, length)) {
      if (node->kind != NodeKind::Command) continue;
      try {
        FinishCommand(*node);
      } catch (const EngineError&) {  // as the device has it
      }
    }
  }
  void Resend(const ResendCommand&, Endpoint requester) override { resender_ = requester; }
  Instant AtTicks(std::uint64_t ticks) const override { return Instant(Nanoseconds(ticks >> 1)); }
  void Fire(SignalSet signals) override { Require(signals.any()); }
  void Report(std::uint16_t) override {}

  Endpoint resender_;
  bool granted_ = false;  ///< a wish about control

 private:
  const RegisterFile& registers_;
};

/// What is talked about; the same for all inputs.
class Subject {
 public:
  Subject() {
    AddStandardFeatures(tree, SensorFormat{0x0108'0001, "Mono8", 640, 480, true});
    AddUsersNodes(tree);
    tree.Memory().Store32(Bootstrap::kHeartbeatTimeout, 3000);
    registers.Index({true, 1500}, 1000);
    tree.SetFrozen(true);
    beginning.emplace(tree);
  }

  FeatureTree tree;
  RegisterFile registers{tree};
  std::optional<TreeContent> beginning;
};

class Conversation {
 public:
  explicit Conversation(Subject& subject) : tree_(subject.tree), registers_(subject.registers) {
    subject.beginning->Restore();
  }

  void Pass(std::chrono::milliseconds time) {
    now_ += time;
    channel_.Expire(now_);
    channel_.FireDue(now_, actions_);
    Require(std::min(channel_.HeartbeatDeadline(), channel_.NextAction()) > now_);
  }

  void Say(Endpoint client, bool broadcast, ByteView datagram) {
    const ControlRequest request{datagram, client, broadcast, now_};
    const Endpoint holder = channel_.Privilege().Holder();
    const bool for_takers =
        ControlPrivilegeBits::SwitchoverEnable::Get(tree_.Memory().Load32(Bootstrap::kControlPrivilege)) != 0;
    const std::vector<std::uint8_t> before = TreeContent::Controlled(tree_);
    if (channel_.Arrived(request).turn == Reception::Turn::Never) return;
    std::array<std::uint8_t, kMaxControlDatagram> answer;
    actions_.resender_ = {};
    actions_.granted_ = false;
    const std::size_t size = channel_.Handle(request, actions_, answer);
    CheckAnswer(datagram, ByteView(answer).first(size));
    // Control decides about everything but the wish for it. Who is given control is rid of the destinations
    // of the client before, and may go on in the same command.
    if (client != holder && !actions_.granted_) Require(TreeContent::Controlled(tree_) == before);
    const bool fixed = holder != Endpoint{} && client != holder && !for_takers;
    if (fixed) Require(channel_.Privilege().Holder() == holder);
    Require(actions_.resender_ == Endpoint{} || actions_.resender_.address == holder.address);
    tree_.TakeStores();
  }

 private:
  FeatureTree& tree_;
  RegisterFile& registers_;
  ControlChannel channel_{tree_, registers_, 1};
  Actions actions_{registers_};
  Instant now_{std::chrono::seconds(1)};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Subject& subject = *new Subject();
  Conversation conversation(subject);
  ByteReader in(ByteView(data, size));
  while (in.Rest().size() >= 3) {
    const auto how = in.Take<std::uint8_t>();
    const std::size_t length = std::min<std::size_t>(in.Take<std::uint16_t>(), in.Rest().size());
    conversation.Pass(std::chrono::milliseconds((how >> 2) * 100));
    conversation.Say(kClients[how & 1], (how & 2) != 0, in.TakeBytes(length));
  }
  return 0;
}
