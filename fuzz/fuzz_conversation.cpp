// A whole conversation: the bytes are cut into datagrams of two clients, with time passing in between, and go
// to a fresh device. Each piece is | which client, broadcast, pause | length | datagram |.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "base/engine_error.h"
#include "engine/control/control_channel.h"
#include "engine/features/standard_features.h"
#include "engine/nodes/node_items.h"
#include "engine/nodes/node_links.h"
#include "engine/nodes/node_values.h"
#include "wire/bootstrap.h"

namespace {

using namespace Tarn;

constexpr std::size_t kMaxUdpPayload = kMaxControlDatagram - 20 - 8;
constexpr Endpoint kClients[] = {{0x7F00'0001, 50000}, {0x7F00'0002, 50000}};
constexpr std::uint32_t kUsersRegister = 0xA000;
constexpr std::uint32_t kUsersText = 0xA100;

/// Registers whose content a client without control may change, by asking for control.
constexpr std::uint32_t kPrivilegeRegisters[] = {Bootstrap::kControlPrivilege, Bootstrap::kPrimaryPort,
                                                 Bootstrap::kPrimaryAddress};

void Require(bool holds) {
  if (!holds) std::abort();
}

/// Nodes of a user in which addresses move, quotients fail and several features share a register.
void AddUsersNodes(FeatureTree& tree) {
  const auto add = [&](NodePtr node) {
    tree.Add(node);
    return node;
  };
  const auto reg = [&](NodeKind kind, const char* name, std::int64_t address, std::int64_t length) {
    return add(MakeRegister(kind, name, NameSpace::Custom, address, length));
  };
  const auto node = [&](NodeKind kind, const char* name, const NodePtr& value) {
    const NodePtr made = add(MakeNode(kind, name, NameSpace::Custom));
    if (value) made->value = value;
    return made;
  };
  const NodePtr number = reg(NodeKind::IntReg, "Number", kUsersRegister, 4);
  reg(NodeKind::IntReg, "Wide", 0xA008, 8);
  reg(NodeKind::FloatReg, "Ratio", 0xA010, 8);
  reg(NodeKind::IntReg, "Odd", 0xA018, 3);
  reg(NodeKind::StringReg, "Text", kUsersText, 16);
  const NodePtr level = node(NodeKind::Integer, "Level", number);
  level->min = std::int64_t{2};
  level->max = std::int64_t{100};
  const NodePtr mode = node(NodeKind::Enumeration, "Mode", number);
  AddRelated(mode, NodeList::Child, MakeNode(NodeKind::EnumEntry, "One", NameSpace::Custom), nullptr);
  const NodePtr fire = node(NodeKind::Command, "Fire", level);
  fire->on_value = std::int64_t{3};
  const NodePtr knife = node(NodeKind::IntSwissKnife, "Quotient", nullptr);
  AddRelated(knife, NodeList::Child, number, nullptr);
  SetTextItem(*knife, NodeItem::Formula, "1000/Number<<Number");
  const NodePtr moving = reg(NodeKind::IntReg, "Moving", 0xB000, 4);
  AddRelated(moving, NodeList::Addresses, knife, nullptr);
  level->is_locked = knife;
}

/// Does what a device does: executed commands are over at once.
class Actions final : public ControlActions {
 public:
  explicit Actions(const RegisterFile& registers) : registers_(registers) {}

  bool Streaming() const override { return false; }
  void BeforeRead(std::uint32_t address, std::uint32_t length) override {
    registers_.Concerned(address, length);
  }
  void AfterWrite(std::uint32_t address, std::uint32_t length) override {
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

 private:
  const RegisterFile& registers_;
};

class Conversation {
 public:
  Conversation() {
    AddStandardFeatures(tree_, SensorFormat{0x0108'0001, "Mono8", 640, 480, true});
    AddUsersNodes(tree_);
    tree_.Memory().Store32(Bootstrap::kHeartbeatTimeout, 3000);
    registers_.Index({true, 1500}, 1000);
    tree_.SetFrozen(true);
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
    const std::vector<std::uint8_t> before = Content();
    if (channel_.Arrived(request).turn == Reception::Turn::Never) return;
    std::array<std::uint8_t, kMaxControlDatagram> answer;
    actions_.resender_ = {};
    const std::size_t size = channel_.Handle(request, actions_, answer);
    CheckAnswer(datagram, ByteView(answer).first(size));
    // Control decides about everything but the wish for it.
    if (client != holder) Require(Content() == before);
    const bool fixed = holder != Endpoint{} && client != holder && !for_takers;
    if (fixed) Require(channel_.Privilege().Holder() == holder);
    Require(actions_.resender_ == Endpoint{} || actions_.resender_.address == holder.address);
    tree_.TakeStores();
  }

 private:
  static void CheckAnswer(ByteView datagram, ByteView answer) {
    if (answer.empty()) return;
    Require(answer.size() <= kMaxUdpPayload);
    ByteReader command_bytes(datagram);
    ByteReader ack_bytes(answer);
    const auto command = CommandHeader::Decode(command_bytes);
    const auto ack = AckHeader::Decode(ack_bytes);
    Require(command && ack && (command->flags & CommandFlag::kAckRequired) != 0);
    Require(ack->ack_id == command->request_id && ack->length == ack_bytes.Rest().size());
  }

  /// Everything that a client could have changed, but who is in control.
  std::vector<std::uint8_t> Content() const {
    std::vector<std::uint8_t> bytes(0x1000 + 0x200);
    const MutableByteView all(bytes);
    tree_.Memory().Read(0, all.first(0x1000));
    tree_.Memory().Read(kUsersRegister, all.subspan(0x1000));
    for (const std::uint32_t address : kPrivilegeRegisters) StoreBe(bytes.data() + address, std::uint32_t{0});
    return bytes;
  }

  FeatureTree tree_;
  RegisterFile registers_{tree_};
  ControlChannel channel_{tree_, registers_, 1};
  Actions actions_{registers_};
  Instant now_{std::chrono::seconds(1)};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Conversation conversation;
  ByteReader in(ByteView(data, size));
  while (in.Rest().size() >= 3) {
    const auto how = in.Take<std::uint8_t>();
    const std::size_t length = std::min<std::size_t>(in.Take<std::uint16_t>(), in.Rest().size());
    conversation.Pass(std::chrono::milliseconds((how >> 2) * 100));
    conversation.Say(kClients[how & 1], (how & 2) != 0, in.TakeBytes(length));
  }
  return 0;
}
