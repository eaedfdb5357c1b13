#include "fuzz/fuzzed_tree.h"

#include <span>

#include "camera/engine/features/event_features.h"
#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_items.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/event_command.h"

namespace Tarn {
namespace {

struct Piece {
  std::uint64_t address;
  std::size_t size;
};
/// The standard's registers and the user's; then the device's own, some of which count what others do.
constexpr Piece kPieces[] = {{0, 0x1000},
                             {0x9000, 0x1200},
                             {ManufacturerRegister::kBase, 0x1000},
                             {NotificationRegister(EventNumber::kFirstOfDevice), 0x800}};

std::vector<std::uint8_t> Read(const FeatureTree& tree, std::span<const Piece> pieces) {
  std::vector<std::uint8_t> bytes;
  for (const Piece& piece : pieces) {
    bytes.resize(bytes.size() + piece.size);
    tree.Memory().Read(piece.address, MutableByteView(bytes).last(piece.size));
  }
  return bytes;
}

}  // namespace

NodePtr AddUsersNodes(FeatureTree& tree, void (*listen)(void*), void* context) {
  const NodePtr number = NewIntReg("Number", 0xA000);
  const NodePtr wide = NewIntReg("Wide", 0xA008, 8);
  const NodePtr ratio = NewRegister(NodeKind::FloatReg, "Ratio", 0xA010, 8);
  const NodePtr odd = NewIntReg("Odd", 0xA018, 3);
  const NodePtr text = NewRegister(NodeKind::StringReg, "Text", 0xA100, 16);
  const NodePtr level = NewInteger("Level", number);
  level->min = std::int64_t{2};
  level->max = std::int64_t{100};
  level->event_id = 0x9100;
  const NodePtr mode = NewEnumeration("Mode", number, {{"One", 0}});
  const NodePtr fire = NewNode(NodeKind::Command, "Fire", level);
  fire->on_value = std::int64_t{3};
  const NodePtr knife = NewNode(NodeKind::IntSwissKnife, "Quotient");
  AddRelated(knife, NodeList::Child, number, nullptr);
  SetTextItem(*knife, NodeItem::Formula, "1000/Number<<Number");
  const NodePtr moving = NewIntReg("Moving", 0xB000);
  AddRelated(moving, NodeList::Addresses, knife, nullptr);
  level->is_locked = knife;
  for (const NodePtr& node : {wide, odd, text, level}) node->streamable = true;
  for (const NodePtr& node : {number, wide, ratio, odd, text, level, mode, fire, knife, moving})
    tree.Add(node);
  for (const NodePtr& node : {number, tree.Find("ActionCount1")}) {
    for (const NodeEvent event : {NodeEvent::Read, NodeEvent::Write}) {
      node->listeners.push_back(
          std::make_shared<const NodeListener>(NodeListener{event, listen, context, 1}));
    }
  }
  return number;
}

std::vector<std::uint8_t> Content(const FeatureTree& tree) { return Read(tree, kPieces); }

void Restore(FeatureTree& tree, const std::vector<std::uint8_t>& content) {
  ByteReader in(content);
  for (const Piece& piece : kPieces) tree.Memory().Write(piece.address, in.TakeBytes(piece.size));
  tree.TakeStores();
}

std::vector<std::uint8_t> ControlledContent(const FeatureTree& tree) {
  std::vector<std::uint8_t> bytes = Read(tree, std::span(kPieces).first(2));
  // These a client without control may change, by asking for control.
  for (const std::uint32_t address :
       {Bootstrap::kControlPrivilege, Bootstrap::kPrimaryPort, Bootstrap::kPrimaryAddress}) {
    StoreBe(&bytes[address], std::uint32_t{0});
  }
  return bytes;
}

}  // namespace Tarn
