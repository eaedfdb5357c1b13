#include "camera/engine/nodes/feature_tree.h"

#include <algorithm>
#include <utility>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/register_value.h"

namespace Tarn {
namespace {

std::string AddressText(std::uint64_t address) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string text;
  for (int shift = 28; shift >= 0; shift -= 4) text.push_back(kDigits[address >> shift & 15]);
  return "0x" + text;
}

}  // namespace

void FeatureTree::Release() noexcept {
  SetGuard(nullptr);
  for (const auto& [name, node] : added_) node->tree = nullptr;
  for (const auto& [name, entries] : entries_) {
    for (const NodePtr& entry : entries) entry->tree = nullptr;
  }
  nodes_.clear();
  gaps_ = 0;
  added_.clear();
  entries_.clear();
}

void FeatureTree::SetGuard(Mutex* lock) {
  guard = lock;
  for (const auto& [name, node] : added_) node->guard = lock;
  for (const auto& [name, entries] : entries_) {
    for (const NodePtr& entry : entries) entry->guard = lock;
  }
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
  if (added_.contains(node->name) || node->name == kPortName) {
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
  if (const NodePtr entry = Find(node->name)) Hide(entry);
  added_.emplace(node->name, node);
  Show(node);
  node->tree = this;
  node->guard = guard.load();
  if (node->traits.children != ChildRole::Entry) return;
  for (const NodePtr& entry : node->children) AdoptEntry(entry);
}

void FeatureTree::Show(const NodePtr& node) {
  node->place = nodes_.size();
  nodes_.push_back(node);
}

void FeatureTree::Hide(const NodePtr& node) {
  nodes_[node->place] = nullptr;
  ++gaps_;
  if (2 * gaps_ > nodes_.size()) Nodes();  // so that gaps do not pile up where nobody looks at the list
}

const std::vector<NodePtr>& FeatureTree::Nodes() const {
  if (std::exchange(gaps_, 0) > 0) {
    std::erase(nodes_, nullptr);
    for (std::size_t i = 0; i < nodes_.size(); ++i) nodes_[i]->place = i;
  }
  return nodes_;
}

void FeatureTree::PlaceRegister(Node& node) {
  RegisterPart& reg = *node.reg;
  const bool automatic = reg.address < 0;
  const std::uint64_t begin = automatic ? FreeAddress(node) : static_cast<std::uint64_t>(reg.address);
  const std::uint64_t end = begin + reg.length;
  if (begin < kBootstrapEnd || end > kManufacturerRegisters) {
    throw EngineError(Failure::kAddress, "the address " + AddressText(begin) + " of " + node.name +
                                             " is reserved: use " + AddressText(kBootstrapEnd) + " to " +
                                             AddressText(kManufacturerRegisters - 1));
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

/// Goes on behind the last one, so that addresses increase, and looks for gaps when the end was reached.
std::uint64_t FeatureTree::FreeAddress(const Node& node) const {
  for (const std::uint64_t from : {next_automatic_, kAutomaticStart}) {
    if (const auto free = FreeAddressFrom(from, node.reg->length)) return *free;
  }
  throw EngineError(Failure::kAddress, "there is no room for the register " + node.name);
}

std::optional<std::uint64_t> FeatureTree::FreeAddressFrom(std::uint64_t begin, std::uint32_t length) const {
  const std::uint64_t alignment = length == 8 ? 8 : 4;
  const auto aligned = [=](std::uint64_t address) {
    return (address + alignment - 1) / alignment * alignment;
  };
  begin = aligned(begin);
  while (const Node* owner = OwnerWithin(begin, begin + length)) {
    begin = aligned(static_cast<std::uint64_t>(owner->reg->address) + owner->reg->length);
  }
  return begin + length <= kManufacturerRegisters ? std::optional(begin) : std::nullopt;
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
  const bool shown = Find(node->name) == node;
  if (shown) Hide(node);
  if (WasAdded(*node)) added_.erase(node->name);
  if (const auto found = entries_.find(node->name); found != entries_.end()) {
    std::erase(found->second, node);
    if (found->second.empty()) entries_.erase(found);
  }
  if (const NodePtr next = shown ? Find(node->name) : nullptr) Show(next);
  RemoveFromLists(node);
  node->tree = nullptr;
  node->guard = nullptr;
  if (node->traits.children != ChildRole::Entry) return;
  for (const NodePtr& entry : std::vector<NodePtr>(node->children)) DropEntry(entry);
}

bool FeatureTree::WasAdded(const Node& node) const {
  const auto found = added_.find(node.name);
  return found != added_.end() && found->second.get() == &node;
}

void FeatureTree::AdoptEntry(const NodePtr& entry) {
  if (entry->tree) return;
  entry->tree = this;
  entry->guard = guard.load();
  const bool hidden = Find(entry->name) != nullptr;
  entries_[entry->name].push_back(entry);
  if (!hidden) Show(entry);
}

void FeatureTree::DropEntry(const NodePtr& entry) {
  if (entry->tree == this && !WasAdded(*entry) && !IsListedEntry(*entry)) Forget(entry);
}

NodePtr FeatureTree::Find(const std::string& name) const {
  if (const auto found = added_.find(name); found != added_.end()) return found->second;
  const auto found = entries_.find(name);
  return found == entries_.end() ? nullptr : found->second.front();
}

void FeatureTree::NoteStore(std::uint64_t address) {
  if (address < kBootstrapEnd || address >= kManufacturerRegisters) stores_.push_back(address);
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
