#include "camera/engine/registers/register_file.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node_access.h"
#include "camera/engine/nodes/register_value.h"
#include "camera/engine/registers/own_registers.h"
#include "camera/engine/registers/possible_values.h"
#include "camera/engine/registers/write_check.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

using Dependants = std::unordered_map<const Node*, std::vector<NodePtr>>;

/// For each node the nodes that take their value from it, in the order of adding.
Dependants DirectDependants(const FeatureTree& tree) {
  Dependants found;
  for (const NodePtr& node : tree.Nodes()) {
    if (const NodePtr source = NodeOf(node->value)) found[source.get()].push_back(node);
  }
  return found;
}

/// Breadth first, so that the nearest come first.
std::vector<NodePtr> AllDependants(const NodePtr& node, const Dependants& direct) {
  std::vector<NodePtr> found;
  std::unordered_set<const Node*> seen;
  const auto append = [&](const Node* source) {
    const auto next = direct.find(source);
    if (next == direct.end()) return;
    for (const NodePtr& dependant : next->second) {
      if (seen.insert(dependant.get()).second) found.push_back(dependant);
    }
  };
  append(node.get());
  for (std::size_t next = 0; next < found.size();) append(found[next++].get());
  return found;
}

/// Loading or saving a user set reaches far more nodes than the command's own.
bool IsUserSetCommand(const Node& node) {
  return node.is_register() &&
         (node.reg->address == OwnRegisters::kUserSetLoad || node.reg->address == OwnRegisters::kUserSetSave);
}

bool MayBeRead(const Node& node) {
  try {
    const AccessMode mode = AccessOf(node);
    return mode == AccessMode::ReadOnly || mode == AccessMode::ReadWrite;
  } catch (const EngineError&) {
    return false;
  }
}

}  // namespace

void RegisterFile::Index(const BootstrapProfile& profile, std::uint64_t description_size) {
  profile_ = profile;
  description_size_ = description_size;
  fixed_.clear();
  dynamic_.clear();
  longest_ = 0;
  const Dependants direct = DirectDependants(tree_);
  for (const NodePtr& node : tree_.Nodes()) {
    if (!node->is_register() || node->reg->port != PortKind::Device) continue;
    const std::vector<NodePtr> dependants = AllDependants(node, direct);
    const auto addresses = PossibleAddresses(*node);
    if (!addresses) dynamic_.push_back({0, node->reg->length, node, dependants});
    for (const std::uint64_t address : addresses.value_or(std::set<std::uint64_t>())) {
      fixed_.push_back({address, node->reg->length, node, dependants});
    }
    longest_ = std::max<std::uint64_t>(longest_, node->reg->length);
  }
  std::stable_sort(fixed_.begin(), fixed_.end(),
                   [](const Entry& a, const Entry& b) { return a.address < b.address; });
}

template <class Use>
void RegisterFile::ForEachEntry(std::uint64_t address, std::uint64_t length, Use&& use) const {
  const std::uint64_t end = address + length;
  // Registers of the device's own may overlap, so the search begins where the longest one could still reach
  // in.
  const std::uint64_t from = address > longest_ + 3 ? address - longest_ - 3 : 0;
  auto entry = std::lower_bound(fixed_.begin(), fixed_.end(), from,
                                [](const Entry& e, std::uint64_t value) { return e.address < value; });
  for (; entry != fixed_.end() && entry->address < end; ++entry) {
    if (entry->End() > address) use(*entry, entry->address);
  }
  for (const Entry& moving : dynamic_) {
    try {
      const auto at = static_cast<std::uint64_t>(CurrentAddress(*moving.node));
      if (at < end && (at + moving.length + 3) / 4 * 4 > address) use(moving, at);
    } catch (const EngineError&) {
      // Its address cannot be computed at this moment, so it lies nowhere.
    }
  }
}

bool RegisterFile::Exists(std::uint64_t address) const {
  bool found = false;
  ForEachEntry(address, 4, [&](const Entry&, std::uint64_t) { found = true; });
  return found;
}

WireStatus RegisterFile::CheckRead(std::uint32_t address, std::uint32_t length, bool block) const {
  constexpr std::uint64_t kSpace = std::uint64_t{1} << 32;
  if (length > kSpace - address) return WireStatus::InvalidAddress;
  // Clients round the last piece of the file up to whole words.
  const std::uint64_t file_end = kDescriptionFile + (description_size_ + 3) / 4 * 4;
  if (address >= kDescriptionFile && std::uint64_t{address} + length <= file_end) return WireStatus::Success;
  for (std::uint64_t at = address; at < std::uint64_t{address} + length; at += 4) {
    const auto word = static_cast<std::uint32_t>(at);
    const bool exists = at < kBootstrapEnd ? (block ? BootstrapReadableInBlock(word, profile_)
                                                    : BootstrapExists(word, profile_))
                                           : Exists(at);
    if (!exists) return WireStatus::InvalidAddress;
  }
  return WireStatus::Success;
}

void RegisterFile::Read(std::uint32_t address, MutableByteView out) const {
  tree_.Refresh(address, out.size());
  tree_.Memory().Read(address, out);
  const std::uint64_t end = std::uint64_t{address} + out.size();
  if (address < kBootstrapEnd) return BlankWriteOnly(address, out);
  ForEachEntry(address, out.size(), [&](const Entry& entry, std::uint64_t at) {
    if (MayBeRead(*entry.node)) return;
    const std::uint64_t first = std::max<std::uint64_t>(at, address);
    const std::uint64_t last = std::min(at + entry.length, end);
    if (first < last)
      std::fill(out.begin() + static_cast<std::ptrdiff_t>(first - address),
                out.begin() + static_cast<std::ptrdiff_t>(last - address), std::uint8_t{0});
  });
}

std::uint32_t RegisterFile::UnitLength(std::uint32_t address, std::uint32_t length) const {
  std::uint64_t unit = 4;
  if (address >= kBootstrapEnd) {
    ForEachEntry(address, 4, [&](const Entry& entry, std::uint64_t at) {
      unit = std::max(unit, (at + entry.length + 3) / 4 * 4 - address);
    });
  }
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(unit, length));
}

WireStatus RegisterFile::Write(std::uint32_t address, ByteView bytes, const WriteContext& context) {
  return address < kBootstrapEnd ? WriteBootstrap(address, bytes, context) : WriteNode(address, bytes);
}

WireStatus RegisterFile::WriteBootstrap(std::uint32_t address, ByteView bytes, const WriteContext& context) {
  const std::uint32_t old = tree_.Memory().Load32(address);
  const BootstrapWrite write =
      DecideBootstrapWrite(address, LoadBe<std::uint32_t>(bytes.data()), old, profile_, context);
  if (write.status != WireStatus::Success) return write.status;
  tree_.Memory().Store32(address, write.value);
  tree_.NoteStore(address);
  return WireStatus::Success;
}

WireStatus RegisterFile::WriteNode(std::uint32_t address, ByteView bytes) {
  WireStatus result = WireStatus::InvalidAddress;
  std::uint64_t start = 0;
  ForEachEntry(address, bytes.size(), [&](const Entry& entry, std::uint64_t at) {
    if (result == WireStatus::Success) return;
    // A text is written from its beginning; numbers also word by word.
    if (entry.node->kind == NodeKind::StringReg && at != address) return;
    // The register's content after the write; bytes behind its end fill up a last word and are not kept.
    std::vector<std::uint8_t> content(entry.length);
    tree_.Memory().Read(at, content);
    const std::uint64_t first = std::max<std::uint64_t>(at, address);
    const std::uint64_t last = std::min(at + entry.length, std::uint64_t{address} + bytes.size());
    for (std::uint64_t i = first; i < last; ++i) {
      content[static_cast<std::size_t>(i - at)] = bytes[static_cast<std::size_t>(i - address)];
    }
    result = CheckClientWrite(*entry.node, entry.dependants, content);
    if (result != WireStatus::Success) return;
    start = at;
    tree_.Memory().Write(at, content);
  });
  if (result == WireStatus::Success) tree_.NoteStore(start);
  return result;
}

template <class Use>
void RegisterFile::ForEachConcerned(std::uint64_t address, std::uint64_t length, Use&& use) const {
  ForEachEntry(address, length, [&](const Entry& entry, std::uint64_t) {
    use(entry.node);
    for (const NodePtr& node : entry.dependants) use(node);
  });
}

std::vector<NodePtr> RegisterFile::Concerned(std::uint32_t address, std::uint32_t length) const {
  std::vector<NodePtr> found;
  ForEachConcerned(address, length, [&](const NodePtr& node) { found.push_back(node); });
  return found;
}

bool RegisterFile::HasListeners(std::uint32_t address, std::uint32_t length, NodeEvent event) const {
  bool found = false;
  ForEachConcerned(address, length, [&](const NodePtr& node) {
    const auto hears = [event](const auto& listener) { return listener->event == event; };
    found = found || std::ranges::any_of(node->listeners, hears) ||
            (event == NodeEvent::Write && IsUserSetCommand(*node));
  });
  return found;
}

std::vector<std::shared_ptr<const NodeListener>> RegisterFile::Listeners(std::uint32_t address,
                                                                         std::uint32_t length,
                                                                         NodeEvent event) const {
  std::vector<std::shared_ptr<const NodeListener>> found;
  ForEachConcerned(address, length, [&](const NodePtr& node) {
    for (const auto& listener : node->listeners) {
      if (listener->event == event) found.push_back(listener);
    }
  });
  return found;
}

std::vector<PlacedRegister> RegisterFile::Streamable() const {
  std::vector<PlacedRegister> found;
  for (const Entry& entry : fixed_) {
    const bool streamable =
        entry.node->streamable || std::ranges::any_of(entry.dependants, &Node::streamable);
    if (streamable && IsWritable(entry.node->reg->access)) found.push_back({entry.address, entry.node});
  }
  return found;
}

}  // namespace Tarn
