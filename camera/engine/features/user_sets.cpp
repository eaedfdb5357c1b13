#include "camera/engine/features/user_sets.h"

#include "camera/engine/nodes/node_links.h"

namespace Tarn {
namespace {

/// Puts the bits of a masked register from `value` into the register's present content.
void MergeBits(const BitRange& bits, const std::vector<std::uint8_t>& value,
               std::vector<std::uint8_t>& content) {
  for (unsigned bit = bits.first; bit <= bits.last; ++bit) {
    const auto mask = static_cast<std::uint8_t>(0x80u >> bit % 8);
    const std::size_t byte = bit / 8;
    content[byte] = static_cast<std::uint8_t>((content[byte] & ~mask) | (value[byte] & mask));
  }
}

}  // namespace

std::vector<std::uint8_t> UserSets::Content(const PlacedRegister& reg) const {
  std::vector<std::uint8_t> content(reg.node->reg->length);
  tree_.Memory().Read(reg.address, content);
  return content;
}

void UserSets::Complete() {
  for (const PlacedRegister& reg : registers_.Streamable()) {
    for (Values& values : sets_) values.try_emplace({reg.node->name, reg.address}, Content(reg));
  }
}

void UserSets::Save(UserSet set) {
  Values& values = sets_[static_cast<std::size_t>(set)];
  for (const PlacedRegister& reg : registers_.Streamable()) {
    values[{reg.node->name, reg.address}] = Content(reg);
  }
}

std::vector<PlacedRegister> UserSets::Load(UserSet set, const WriteContext& context) {
  const Values& values = sets_[static_cast<std::size_t>(set)];
  std::vector<PlacedRegister> taken;
  std::vector<PlacedRegister> waiting = registers_.Streamable();
  for (bool progress = true; progress && !waiting.empty();) {
    std::vector<PlacedRegister> refused;
    for (PlacedRegister& reg : waiting) {
      (Restore(reg, values, context) ? taken : refused).push_back(std::move(reg));
    }
    progress = refused.size() < waiting.size();
    waiting = std::move(refused);
  }
  return taken;
}

bool UserSets::Restore(const PlacedRegister& reg, const Values& values, const WriteContext& context) {
  const auto saved = values.find({reg.node->name, reg.address});
  std::vector<std::uint8_t> content = Content(reg);
  // A node of the same name may have another length in this run.
  if (saved == values.end() || saved->second.size() != content.size()) return false;
  if (reg.node->reg->bits) {
    MergeBits(*reg.node->reg->bits, saved->second, content);
  } else {
    content = saved->second;
  }
  return registers_.Write(static_cast<std::uint32_t>(reg.address), content, context) == WireStatus::Success;
}

void InvalidateByUserSets(const FeatureTree& tree) {
  const NodePtr load = tree.Find("UserSetLoad");
  for (const NodePtr& node : tree.Nodes()) {
    if (!node->streamable) continue;
    const NodePtr reg = RegisterBehind(node);
    if (reg && IsWritable(reg->reg->access)) AddRelated(reg, NodeList::Invalidator, load, nullptr);
  }
}

}  // namespace Tarn
