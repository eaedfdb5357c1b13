#pragma once

/// One node of the feature tree: what it is called, what it is made of, and to which nodes it is linked.
///
/// A node is data; what it is worth at a moment is computed by the functions of node_values.h, node_limits.h
/// and node_access.h, the only places that follow its links.

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "camera/engine/nodes/codes.h"
#include "camera/engine/nodes/formula.h"
#include "camera/engine/nodes/node_kinds.h"

namespace Tarn {

class FeatureTree;
class Mutex;
struct Node;
using NodePtr = std::shared_ptr<Node>;

/// A configurable item: not set, a constant, or a node that supplies it.
using Setting = std::variant<std::monostate, std::int64_t, double, std::string, NodePtr>;

/// The node of a setting; null when it is a constant or not set.
inline NodePtr NodeOf(const Setting& setting) {
  const NodePtr* node = std::get_if<NodePtr>(&setting);
  return node ? *node : nullptr;
}
inline bool IsSet(const Setting& setting) { return setting.index() != 0; }

/// A callback for a client's reads or writes. Shared, so that one that runs outlives its own unregistration.
struct NodeListener {
  NodeEvent event;
  void (*call)(void* context);
  void* context;
  std::uint64_t cookie;
  bool active = true;  ///< else it is not called, and costs no client anything
};

/// Bits First..Last of a register, counted from the most significant as in the standard's register tables.
struct BitRange {
  unsigned first;
  unsigned last;
};

/// Where clients find the bytes of a register.
enum class PortKind {
  Device,  ///< in the device's register space
  Chunk,   ///< in the chunk of the last image that has the port's id
  Event,   ///< in the event message that has the port's id
};

/// What only register nodes have.
struct RegisterPart {
  std::int64_t address = -1;  ///< constant part of the address; -1: assigned when the node joins a tree
  std::uint32_t length = 4;   ///< bytes
  AccessMode access = AccessMode::ReadWrite;
  CacheMode cache = CacheMode::WriteThrough;
  bool is_signed = true;
  std::optional<BitRange> bits;        ///< a field of the register; published as a masked register
  std::vector<NodePtr> address_nodes;  ///< added to the constant
  std::vector<std::uint8_t> bytes;     ///< the value while the node is in no tree or on a port, big-endian
  PortKind port = PortKind::Device;
  std::uint32_t port_id = 0;  ///< chunk id or event id; the address counts from the beginning of its data
};

/// Threads: guarded by the lock that `guard` tells, see device/node_lock.h.
///
/// Links along which values flow (settings, addresses, conditions, children) share ownership and cannot form
/// circles; links that only inform (selected, invalidators, alias) are weak, since two nodes may well name
/// each other there. Children, selected nodes and invalidators are changed by the functions of node_links.h,
/// which keep `listed_by` right.
struct Node {
  Node(NodeKind node_kind, std::string node_name, NameSpace space)
      : kind(node_kind), traits(TraitsOf(node_kind)), name(std::move(node_name)), name_space(space) {}
  /// Frees chains of nodes one after the other, however long they are.
  ~Node();
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  const NodeKind kind;
  const NodeTraits& traits;  ///< of the kind
  const std::string name;    ///< without namespace
  const NameSpace name_space;
  std::atomic<Mutex*> guard = nullptr;  ///< of the started device in whose tree the node is; null: none
  FeatureTree* tree = nullptr;          ///< the tree that the node is in; cleared by the tree
  std::size_t place = 0;                ///< among the nodes of the tree; kept by the tree
  void* handle = nullptr;               ///< by which the node is known across the C line; null when by none

  // Texts; empty when not set.
  std::string display_name;
  std::string tool_tip;
  std::string description;
  std::string unit;
  std::string symbolic;  ///< of an entry: its symbolic value where that is not the name

  Visibility visibility = Visibility::Beginner;
  std::optional<AccessMode> imposed_access;
  std::optional<Representation> representation;
  std::optional<std::int64_t> display_precision;
  std::int64_t event_id = 0;      ///< 0: none
  std::int64_t polling_time = 0;  ///< milliseconds; 0: not polled
  bool streamable = false;
  bool deprecated = false;

  // Settings. A command's on_value is the number that executes it.
  Setting value;
  Setting min;
  Setting max;
  Setting increment;
  Setting on_value;
  Setting off_value;
  std::optional<std::int64_t> before_command;  ///< of a command that is executed now: what its register held

  // Conditions: nodes whose non-zero value says yes.
  NodePtr is_implemented;
  NodePtr is_available;
  NodePtr is_locked;

  std::weak_ptr<Node> alias;
  std::vector<NodePtr> children;  ///< category: members; enumeration: entries; swiss knife: variables
  std::vector<std::weak_ptr<Node>> selected;
  std::vector<std::weak_ptr<Node>> invalidators;
  std::vector<Node*> listed_by;  ///< nodes with this one in a list; each as often as it has it there

  std::string formula_text;
  Formula formula;  ///< parsed form of formula_text

  std::optional<RegisterPart> reg;  ///< set on register kinds only

  std::vector<std::shared_ptr<const NodeListener>> listeners;

  bool is_register() const { return reg.has_value(); }
};

/// The settings of a node, set or not. As const as the node.
template <class AnyNode>
auto SettingsOf(AnyNode& node) {
  return std::array{&node.value, &node.min, &node.max, &node.increment, &node.on_value, &node.off_value};
}

/// Values do not flow between what a started device guards and what it does not.
/// Throws: EngineError kWrongState when another lock guards `next` than `node`.
void CheckSameGuard(const Node& node, const Node& next);

/// Takes `list` out of the nodes that have `node` in a list, once.
void Unlist(Node& node, const Node& list);

/// What clients call an entry: its own symbolic value, else its name.
inline const std::string& SymbolicOf(const Node& entry) {
  return entry.symbolic.empty() ? entry.name : entry.symbolic;
}

/// Throws: EngineError kName unless `name` is a letter, then letters, digits and underscores.
void CheckName(const std::string& name);

/// "Std::Width", "Cust::Lamp", "Priv::Raw".
std::string FullName(const Node& node);

/// A free node of any kind but the registers.
/// Throws: EngineError kName when the name is no GenApi name.
NodePtr MakeNode(NodeKind kind, const std::string& name, NameSpace name_space);

/// A free register node, value zero.
/// \param kind  kIntReg, kFloatReg or kStringReg
/// \param address  -1, or a multiple of 4 below 2^32
/// \param length  bytes: 1 to 8 for integers, 4 or 8 for floats, a multiple of 4 for strings
/// Throws: EngineError kName, kAddress, kInvalidArgument.
NodePtr MakeRegister(NodeKind kind, const std::string& name, NameSpace name_space, std::int64_t address,
                     std::int64_t length);

}  // namespace Tarn
