#include "fuzz/fuzzed_tree.h"

#include <cstdlib>
#include <iterator>

#include "camera/engine/features/event_features.h"
#include "camera/engine/nodes/node_items.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/event_command.h"
#include "camera/wire/gvcp.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kUsersRegister = 0xA000;
constexpr std::uint32_t kUsersText = 0xA100;

struct Piece {
  std::uint64_t address;
  std::size_t size;
};
/// The standard's registers and the user's; then the device's own, some of which count what others do.
constexpr Piece kControlled[] = {{0, 0x1000}, {0x9000, 0x1200}};
constexpr Piece kOwn[] = {{ManufacturerRegister::kBase, 0x1000},
                          {NotificationRegister(EventNumber::kFirstOfDevice), 0x800}};

/// Registers whose content a client without control may change, by asking for control.
constexpr std::uint32_t kPrivilegeRegisters[] = {Bootstrap::kControlPrivilege, Bootstrap::kPrimaryPort,
                                                 Bootstrap::kPrimaryAddress};

std::vector<Piece> AllPieces() {
  std::vector<Piece> pieces(std::begin(kControlled), std::end(kControlled));
  pieces.insert(pieces.end(), std::begin(kOwn), std::end(kOwn));
  return pieces;
}

}  // namespace

void Require(bool holds) {
  if (!holds) std::abort();
}

NodePtr AddUsersNodes(FeatureTree& tree) {
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
  reg(NodeKind::IntReg, "Wide", 0xA008, 8)->streamable = true;
  reg(NodeKind::FloatReg, "Ratio", 0xA010, 8);
  reg(NodeKind::IntReg, "Odd", 0xA018, 3)->streamable = true;
  reg(NodeKind::StringReg, "Text", kUsersText, 16)->streamable = true;
  const NodePtr level = node(NodeKind::Integer, "Level", number);
  level->min = std::int64_t{2};
  level->max = std::int64_t{100};
  level->event_id = 0x9100;
  level->streamable = true;
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
  return number;
}

TreeContent::TreeContent(FeatureTree& tree) : tree_(tree) {
  for (const Piece& piece : AllPieces()) {
    tree_.Memory().Read(piece.address, pieces_.emplace_back(piece.size));
  }
}

void TreeContent::Restore() const {
  auto bytes = pieces_.begin();
  for (const Piece& piece : AllPieces()) tree_.Memory().Write(piece.address, *bytes++);
  tree_.TakeStores();
}

std::vector<std::uint8_t> TreeContent::Controlled(const FeatureTree& tree) {
  std::vector<std::uint8_t> bytes;
  for (const Piece& piece : kControlled) {
    bytes.resize(bytes.size() + piece.size);
    tree.Memory().Read(piece.address, MutableByteView(bytes).last(piece.size));
  }
  for (const std::uint32_t address : kPrivilegeRegisters) StoreBe(bytes.data() + address, std::uint32_t{0});
  return bytes;
}

}  // namespace Tarn
