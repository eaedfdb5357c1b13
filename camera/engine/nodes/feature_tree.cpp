#include "camera/engine/nodes/feature_tree.h"

#include <algorithm>
#include <utility>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/register_value.h"

namespace Tarn {
namespace {

template <class List>
void EraseWeak(List& list, const NodePtr& node) {
  std::erase_if(list, [&](const std::weak_ptr<Node>& other) { return other.lock() == node; });
}

std::string AddressText(std::uint64_t address) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string text;
  for (int shift = 28; shift >= 0; shift -= 4) text.push_back(kDigits[address >> shift & 15]);
  return "0x" + text;
}

}  // namespace

void FeatureTree::Release() noexcept {
  for (const NodePtr& node : nodes_) {
    node->tree = nullptr;
    // Entries that share their name with another node are not listed.
    if (node->kind != NodeKind::Enumeration) continue;
    for (const NodePtr& entry : node->children) entry->tree = nullptr;
  }
  nodes_.clear();
  by_name_.clear();
  entries_by_name_.clear();
}

void FeatureTree::CheckChangeable() const {
  if (!frozen_) return;
  throw EngineError(Failure::kWrongState,
                    "nodes can be added and removed only while the server is not started");
}

void FeatureTree::CheckAddable(const NodePtr& node) const {
  CheckChangeable();
  if (node->tree == this) throw EngineError(Failure::kExists, node->name + " is in this node map already");
  if (node->tree) throw EngineError(Failure::kExists, node->name + " is in the node map of another server");
  if (by_name_.contains(node->name) || node->name == kPortName) {
    throw EngineError(Failure::kExists, "the node map has a node named " + node->name + " already");
  }
}

void FeatureTree::Add(const NodePtr& node) {
  CheckAddable(node);
  if (node->is_register() && node->reg->port == PortKind::Device) PlaceRegister(*node);
  Insert(node);
}

void FeatureTree::AddOwn(const NodePtr& node) {
  CheckAddable(node);
  Insert(node);
}

void FeatureTree::Insert(const NodePtr& node) {
  by_name_.emplace(node->name, node);
  if (const auto entry = entries_by_name_.extract(node->name)) std::erase(nodes_, entry.mapped());
  nodes_.push_back(node);
  node->tree = this;
  for (const NodePtr& child : node->children) {
    if (node->kind == NodeKind::Enumeration) AdoptEntry(child);
  }
}

void FeatureTree::PlaceRegister(Node& node) {
  RegisterPart& reg = *node.reg;
  const bool automatic = reg.address < 0;
  const std::uint64_t begin = automatic ? FreeAddress(reg.length) : static_cast<std::uint64_t>(reg.address);
  const std::uint64_t end = begin + reg.length;
  if (begin < kBootstrapEnd || end > kOwnRegisters) {
    throw EngineError(Failure::kAddress, "the address " + AddressText(begin) + " of " + node.name +
                                             " is reserved: use " + AddressText(kBootstrapEnd) + " to " +
                                             AddressText(kOwnRegisters - 1));
  }
  if (const Node* owner = OwnerWithin(begin, end)) {
    throw EngineError(Failure::kAddress, "the address " + AddressText(begin) + " of " + node.name +
                                             " is taken by " + owner->name);
  }
  reg.address = static_cast<std::int64_t>(begin);
  if (automatic) next_automatic_ = end;
  // Clients read and write whole words, so the rest of a last word belongs to the register.
  extents_.emplace(begin, Extent{(end + 3) / 4 * 4, &node});
  memory_.Write(begin, reg.bytes);
}

std::uint64_t FeatureTree::FreeAddress(std::uint32_t length) const {
  const std::uint64_t alignment = length == 8 ? 8 : 4;
  std::uint64_t begin = (next_automatic_ + alignment - 1) / alignment * alignment;
  while (const Node* owner = OwnerWithin(begin, begin + length)) {
    const std::uint64_t after = static_cast<std::uint64_t>(owner->reg->address) + owner->reg->length;
    begin = (after + alignment - 1) / alignment * alignment;
  }
  return begin;
}

const Node* FeatureTree::OwnerWithin(std::uint64_t begin, std::uint64_t end) const {
  auto next = extents_.lower_bound(begin);
  if (next != extents_.end() && next->first < end) return next->second.owner;
  if (next == extents_.begin()) return nullptr;
  const auto& before = *std::prev(next);
  return before.second.end > begin ? before.second.owner : nullptr;
}

void FeatureTree::Remove(const NodePtr& node) {
  CheckChangeable();
  if (node->tree != this) throw EngineError(Failure::kNotFound, node->name + " is not in this node map");
  if (node->is_register()) TakeBytes(*node);
  Forget(node);
}

/// Lets the register keep its bytes itself, and frees its place.
void FeatureTree::TakeBytes(Node& reg) {
  if (reg.reg->port != PortKind::Device) return;
  const auto begin = static_cast<std::uint64_t>(reg.reg->address);
  memory_.Read(begin, reg.reg->bytes);
  const auto extent = extents_.find(begin);
  if (extent == extents_.end() || extent->second.owner != &reg) return;
  extents_.erase(extent);
  memory_.Clear(begin, reg.reg->length);
}

void FeatureTree::MoveToPort(Node& reg, PortKind port, std::uint32_t id) {
  CheckChangeable();
  TakeBytes(reg);
  reg.reg->port = port;
  reg.reg->port_id = id;
  reg.reg->address = 0;
}

void FeatureTree::MoveToDevice(Node& reg) {
  CheckChangeable();
  TakeBytes(reg);
  reg.reg->port = PortKind::Device;
  reg.reg->address = -1;
  PlaceRegister(reg);
}

void FeatureTree::Forget(const NodePtr& node) {
  const auto erase_from = [&](std::unordered_map<std::string, NodePtr>& names) {
    const auto found = names.find(node->name);
    if (found != names.end() && found->second == node) names.erase(found);
  };
  erase_from(by_name_);
  erase_from(entries_by_name_);
  // Searched from the end: what was added last is usually removed first.
  const auto found = std::find(nodes_.rbegin(), nodes_.rend(), node);
  if (found != nodes_.rend()) nodes_.erase(std::next(found).base());
  for (const NodePtr& other : nodes_) {
    if (other->kind == NodeKind::Category) std::erase(other->children, node);
    EraseWeak(other->selected, node);
    EraseWeak(other->invalidators, node);
  }
  node->tree = nullptr;
  if (node->kind != NodeKind::Enumeration) return;
  for (const NodePtr& entry : std::vector<NodePtr>(node->children)) {
    if (entry->tree == this) Forget(entry);
  }
}

void FeatureTree::AdoptEntry(const NodePtr& entry) {
  if (entry->tree) return;
  entry->tree = this;
  if (by_name_.contains(entry->name) || !entries_by_name_.emplace(entry->name, entry).second) return;
  nodes_.push_back(entry);
}

void FeatureTree::DropEntry(const NodePtr& entry) {
  const auto added = by_name_.find(entry->name);
  if (entry->tree != this || (added != by_name_.end() && added->second == entry)) return;
  const bool listed = std::any_of(nodes_.begin(), nodes_.end(), [&entry](const NodePtr& node) {
    return node->kind == NodeKind::Enumeration &&
           std::find(node->children.begin(), node->children.end(), entry) != node->children.end();
  });
  if (!listed) Forget(entry);
}

NodePtr FeatureTree::Find(const std::string& name) const {
  if (const auto found = by_name_.find(name); found != by_name_.end()) return found->second;
  const auto found = entries_by_name_.find(name);
  return found == entries_by_name_.end() ? nullptr : found->second;
}

void FeatureTree::NoteStore(std::uint64_t address) {
  if (address < kBootstrapEnd || address >= kOwnRegisters) stores_.push_back(address);
}

std::vector<std::uint64_t> FeatureTree::TakeStores() { return std::exchange(stores_, {}); }

void FeatureTree::Watch(std::unordered_set<const Node*> registers) {
  watched_ = std::move(registers);
  watched_stores_.clear();
}

void FeatureTree::NoteOwnStore(const Node& reg, std::uint64_t address) {
  NoteStore(address);
  if (watched_.contains(&reg)) watched_stores_.push_back({&reg, address});
}

std::vector<FeatureTree::WatchedStore> FeatureTree::TakeWatchedStores() {
  return std::exchange(watched_stores_, {});
}

}  // namespace Tarn
