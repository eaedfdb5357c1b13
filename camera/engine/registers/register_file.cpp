#include "camera/engine/registers/register_file.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node_access.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/nodes/register_value.h"
#include "camera/engine/registers/register_table.h"
#include "camera/engine/registers/write_check.h"

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
  return node.is_register() && (node.reg->address == ManufacturerRegister::kUserSetLoad ||
                                node.reg->address == ManufacturerRegister::kUserSetSave);
}

/// The last byte of the last word that a register at `address` reaches into. Clients read and write words.
std::uint32_t LastByte(std::uint64_t address, std::uint64_t length) {
  return static_cast<std::uint32_t>((address + length + 3) / 4 * 4 - 1);
}

std::variant<std::monostate, std::int64_t, Failure> ValueNow(const Node& node) {
  try {
    return ReadInteger(node);
  } catch (const EngineError& error) {
    return error.failure();
  }
}

}  // namespace

void RegisterFile::Index(const BootstrapProfile& profile, std::uint64_t description_size) {
  profile_ = profile;
  description_size_ = description_size;
  registers_.clear();
  inputs_.clear();
  input_numbers_.clear();
  const Dependants direct = DirectDependants(tree_);
  std::vector<Place> fixed;
  for (const NodePtr& node : tree_.Nodes()) {
    if (!node->is_register() || node->reg->port != PortKind::Device) continue;
    AddRegister(node, AllDependants(node, direct), fixed);
  }
  fixed_ = PlaceIndex(std::move(fixed));
  moving_ = PlaceIndex();
  revision_.reset();
}

void RegisterFile::AddRegister(const NodePtr& node, std::vector<NodePtr> dependants,
                               std::vector<Place>& fixed) {
  const auto number = static_cast<std::uint32_t>(registers_.size());
  Register& reg = registers_.emplace_back(Register{node, std::move(dependants), nullptr, {}, {}});
  if (node->reg->address_nodes.empty()) {
    const auto address = static_cast<std::uint32_t>(node->reg->address);
    fixed.push_back({address, LastByte(address, node->reg->length), number, 0});
    return;
  }
  reg.selectors = std::make_unique<AddressSelectors>(FindAddressSelectors(*node));
  for (const NodePtr& input : reg.selectors->inputs) reg.inputs.push_back(InputNumber(input));
  if (!reg.inputs.empty()) return;
  const std::vector<Place> places = PlacesOf(reg, number);
  fixed.insert(fixed.end(), places.begin(), places.end());
}

std::size_t RegisterFile::InputNumber(const NodePtr& node) {
  const auto [place, added] = input_numbers_.try_emplace(node.get(), inputs_.size());
  if (added) inputs_.push_back({node, {}});
  return place->second;
}

std::vector<Place> RegisterFile::PlacesOf(const Register& reg, std::uint32_t number) const {
  std::vector<Place> places;
  const SelectorSpace& space = reg.selectors->space;
  for (std::size_t i = 0; i < space.Combinations(); ++i) {
    const auto address = AddressIn(*reg.node, space, i);
    if (!address) continue;
    places.push_back(
        {*address, LastByte(*address, reg.node->reg->length), number, static_cast<std::uint32_t>(i)});
  }
  return places;
}

void RegisterFile::Update() const {
  if (revision_ == tree_.Revision()) return;
  revision_ = tree_.Revision();
  std::vector<bool> changed(inputs_.size());
  for (std::size_t i = 0; i < inputs_.size(); ++i) {
    const auto before = std::exchange(inputs_[i].value, ValueNow(*inputs_[i].node));
    changed[i] = before != inputs_[i].value;
  }
  if (std::ranges::find(changed, true) == changed.end()) return;
  std::vector<Place> moving;
  for (std::size_t i = 0; i < registers_.size(); ++i) {
    Register& reg = registers_[i];
    if (std::ranges::any_of(reg.inputs, [&](std::size_t input) { return changed[input]; })) {
      FindPlaces(reg, static_cast<std::uint32_t>(i));
    }
    moving.insert(moving.end(), reg.places.begin(), reg.places.end());
  }
  moving_ = PlaceIndex(std::move(moving));
}

void RegisterFile::FindPlaces(Register& reg, std::uint32_t number) const {
  try {
    if (!reg.selectors->present_only) reg.selectors->space = FindAddressSelectors(*reg.node).space;
    reg.places = PlacesOf(reg, number);
  } catch (const EngineError&) {
    reg.places.clear();  // a selector has no limits at this moment
  }
}

template <class Use>
void RegisterFile::ForEachRegister(std::uint64_t address, std::uint64_t length, Use&& use) const {
  constexpr std::uint64_t kLast = 0xFFFF'FFFF;
  if (length == 0) return;
  Update();
  const auto first = static_cast<std::uint32_t>(address);
  const auto last = static_cast<std::uint32_t>(std::min(address + length - 1, kLast));
  const auto tell = [&](Places places) { use(registers_[places.front().reg], places); };
  if (moving_.Places().empty()) return fixed_.ForEach(first, last, tell);
  std::vector<Places> found;
  for (const PlaceIndex* index : {&fixed_, &std::as_const(moving_)}) {
    index->ForEach(first, last, [&](Places places) { found.push_back(places); });
  }
  std::ranges::sort(found, {},
                    [](Places places) { return std::pair(places.front().address, places.front().reg); });
  for (const Places places : found) tell(places);
}

template <class Test>
bool RegisterFile::InAnyCase(const Register& reg, Places places, Test&& test) const {
  static const SelectorSpace kNone;
  const SelectorSpace& moving = reg.selectors ? reg.selectors->space : kNone;
  const SelectorSpace others =
      FindOtherSelectors(*reg.node, reg.dependants, moving, kMaxCombinations / places.size());
  for (const Place& place : places) {
    for (std::size_t i = 0; i < others.Combinations(); ++i) {
      Evaluation at;
      moving.Assume(place.combination, at);
      others.Assume(i, at);
      if (test(at)) return true;
    }
  }
  return false;
}

bool RegisterFile::MayBeRead(const Register& reg, Places places) const {
  const Node& node = *reg.node;
  if (!node.is_implemented && !node.is_available && !node.imposed_access) {
    return IsReadable(RegisterAccess(*node.reg));
  }
  return InAnyCase(reg, places, [&](Evaluation& at) {
    try {
      return IsReadable(AccessOf(node, at));
    } catch (const EngineError&) {
      return false;
    }
  });
}

WireStatus RegisterFile::CheckWrite(const Register& reg, Places places, ByteView content) const {
  std::optional<WireStatus> status;
  InAnyCase(reg, places, [&](Evaluation& at) {
    const WireStatus found = CheckClientWrite(*reg.node, reg.dependants, content, at);
    status = status && found != WireStatus::Success ? MoreTelling(*status, found) : found;
    return found == WireStatus::Success;
  });
  return status.value_or(WireStatus::InvalidAddress);
}

/// Whether every byte belongs to a register.
bool RegisterFile::CoverAll(std::uint64_t begin, std::uint64_t end) const {
  std::uint64_t covered = begin;
  ForEachRegister(begin, end - begin, [&](const Register&, Places places) {
    const std::uint64_t after = std::uint64_t{places.front().last} + 1;
    if (places.front().address <= covered) covered = std::max(covered, after);
  });
  return covered >= end;
}

/// INVALID_ADDRESS for a register that is not there at this moment, BUSY for one that cannot be used.
WireStatus RegisterFile::Availability(const Register& reg, Places places) const {
  const Node& node = *reg.node;
  if (!node.is_implemented && !node.is_available) return WireStatus::Success;
  WireStatus status = WireStatus::InvalidAddress;
  InAnyCase(reg, places, [&](Evaluation& at) {
    try {
      const AccessMode access = AccessOf(node, at);
      if (access == AccessMode::NotAvailable) status = WireStatus::Busy;
      if (IsReadable(access) || IsWritable(access)) status = WireStatus::Success;
    } catch (const EngineError&) {
      status = WireStatus::Busy;
    }
    return status == WireStatus::Success;
  });
  return status;
}

WireStatus RegisterFile::CheckRead(std::uint32_t address, std::uint32_t length, bool block) const {
  WireStatus status = CheckCovered(address, length, block);
  if (status != WireStatus::Success || address < kBootstrapEnd || address >= kDescriptionFile) return status;
  // A block may span registers that cannot be read now: they read as zero in it.
  const std::uint64_t end = std::uint64_t{address} + length;
  ForEachRegister(address, length, [&](const Register& reg, Places places) {
    const bool whole = places.front().address <= address && end <= std::uint64_t{places.front().last} + 1;
    if (whole && status == WireStatus::Success) status = Availability(reg, places);
  });
  return status;
}

WireStatus RegisterFile::CheckCovered(std::uint32_t address, std::uint32_t length, bool block) const {
  constexpr std::uint64_t kSpace = std::uint64_t{1} << 32;
  if (length > kSpace - address) return WireStatus::InvalidAddress;
  // Clients round the last piece of the file up to whole words.
  const std::uint64_t file_end = kDescriptionFile + (description_size_ + 3) / 4 * 4;
  if (address >= kDescriptionFile && std::uint64_t{address} + length <= file_end) return WireStatus::Success;
  const std::uint64_t end = std::uint64_t{address} + length;
  std::uint64_t at = address;
  for (; at < std::min(end, kBootstrapEnd); at += 4) {
    const auto word = static_cast<std::uint32_t>(at);
    const bool exists = block ? BootstrapReadableInBlock(word, profile_) : BootstrapExists(word, profile_);
    if (!exists) return WireStatus::InvalidAddress;
  }
  return at == end || CoverAll(at, end) ? WireStatus::Success : WireStatus::InvalidAddress;
}

void RegisterFile::Read(std::uint32_t address, MutableByteView out) const {
  tree_.Refresh(address, out.size());
  tree_.Memory().Read(address, out);
  const std::uint64_t end = std::uint64_t{address} + out.size();
  if (address < kBootstrapEnd) return BlankWriteOnly(address, out);
  ForEachRegister(address, out.size(), [&](const Register& reg, Places places) {
    if (MayBeRead(reg, places)) return;
    const std::uint64_t at = places.front().address;
    const std::uint64_t first = std::max<std::uint64_t>(at, address);
    const std::uint64_t last = std::min(at + reg.node->reg->length, end);
    if (first < last) std::ranges::fill(out.subspan(first - address, last - first), std::uint8_t{0});
  });
}

std::uint32_t RegisterFile::CountRegisters(std::uint32_t address, std::uint32_t length) const {
  std::uint32_t count = 0;
  ForEachRegister(address, length, [&count](const Register&, Places) { ++count; });
  return count;
}

std::uint32_t RegisterFile::UnitLength(std::uint32_t address, std::uint32_t length) const {
  std::uint32_t unit = 4;
  if (address >= kBootstrapEnd) {
    ForEachRegister(address, 4, [&](const Register&, Places places) {
      unit = std::max(unit, places.front().last - address + 1);
    });
  }
  return std::min(unit, length);
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
  ForEachRegister(address, bytes.size(), [&](const Register& reg, Places places) {
    if (result == WireStatus::Success) return;
    const std::uint64_t at = places.front().address;
    // The register's content after the write; bytes behind its end fill up a last word and are not kept.
    std::vector<std::uint8_t> content(reg.node->reg->length);
    tree_.Memory().Read(at, content);
    const std::uint64_t first = std::max<std::uint64_t>(at, address);
    const std::uint64_t last = std::min(at + content.size(), std::uint64_t{address} + bytes.size());
    if (first < last) std::ranges::copy(bytes.subspan(first - address, last - first), &content[first - at]);
    const bool fits = reg.node->traits.value != ValueType::Text || first >= last ||
                      IsPieceOfText(content, first - at, last - at);
    result = fits ? CheckWrite(reg, places, content) : WireStatus::InvalidParameter;
    if (result != WireStatus::Success) return;
    NoteCommands(reg, places, content);
    start = at;
    tree_.Memory().Write(at, content);
  });
  if (result == WireStatus::Success) tree_.NoteStore(start);
  return result;
}

template <class Use>
void RegisterFile::ForEachCommand(const Register& reg, Places places, Use&& use) const {
  for (const NodePtr& node : reg.dependants) {
    if (node->traits.value != ValueType::Command) continue;
    Evaluation at;
    if (reg.selectors) reg.selectors->space.Assume(places.front().combination, at);
    try {
      use(*node, at);
    } catch (const EngineError&) {
      // Its number cannot be computed at this moment, or its register takes no other.
    }
  }
}

void RegisterFile::NoteCommands(const Register& reg, Places places, ByteView content) const {
  if (reg.node->traits.value != ValueType::Integer) return;
  ForEachCommand(reg, places, [&](Node& command, Evaluation& at) {
    NoteExecution(command, NumberIn(*reg.node, content), at);
  });
}

void RegisterFile::FinishCommands(std::uint32_t address, std::uint32_t length) {
  ForEachRegister(address, length, [&](const Register& reg, Places places) {
    ForEachCommand(reg, places, [](Node& command, Evaluation& at) { FinishCommand(command, at); });
  });
}

template <class Use>
void RegisterFile::ForEachReached(std::uint64_t address, std::uint64_t length, Use&& use) const {
  ForEachRegister(address, length, [&](const Register& reg, Places) {
    use(reg.node);
    for (const NodePtr& node : reg.dependants) use(node);
  });
}

bool RegisterFile::HasListeners(std::uint32_t address, std::uint32_t length, NodeEvent event) const {
  bool found = false;
  ForEachReached(address, length, [&](const NodePtr& node) {
    const auto hears = [event](const auto& listener) { return listener->event == event && listener->active; };
    found = found || std::ranges::any_of(node->listeners, hears) ||
            (event == NodeEvent::Write && IsUserSetCommand(*node));
  });
  return found;
}

std::vector<std::shared_ptr<const NodeListener>> RegisterFile::Listeners(std::uint32_t address,
                                                                         std::uint32_t length,
                                                                         NodeEvent event) const {
  std::vector<std::shared_ptr<const NodeListener>> found;
  ForEachReached(address, length, [&](const NodePtr& node) {
    for (const auto& listener : node->listeners) {
      if (listener->event == event && listener->active) found.push_back(listener);
    }
  });
  return found;
}

std::vector<PlacedRegister> RegisterFile::Streamable() const {
  std::vector<PlacedRegister> found;
  ForEachRegister(0, std::uint64_t{1} << 32, [&](const Register& reg, Places places) {
    const bool known = !reg.selectors || !reg.selectors->present_only;
    const bool streamable = reg.node->streamable || std::ranges::any_of(reg.dependants, &Node::streamable);
    if (known && streamable && IsWritable(reg.node->reg->access)) {
      found.push_back({places.front().address, reg.node});
    }
  });
  return found;
}

}  // namespace Tarn
