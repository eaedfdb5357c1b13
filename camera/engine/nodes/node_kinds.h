#pragma once

/// What each kind of node is: one row per kind. All else follows the rows, and names a kind only to make a
/// node or to write its element.

#include <cstdint>
#include <initializer_list>

#include "camera/engine/nodes/codes.h"

namespace Tarn {

/// What the value of a node is.
enum class ValueType {
  None,
  Integer,
  Float,
  Boolean,
  Text,
  Command,      ///< executed by a number; read as whether it is done
  Enumeration,  ///< one of its entries
  Entry,        ///< a number and a symbolic name
};

/// Where the value comes from.
enum class ValueSource {
  None,
  Setting,   ///< a constant, or another node
  Register,  ///< bytes of its own
  Formula,   ///< computed from its variables
};

/// What the children of a node are to it.
enum class ChildRole { None, Member, Entry, Variable };

/// A set of items.
class ItemSet {
 public:
  constexpr ItemSet(std::initializer_list<NodeItem> items) {
    for (const NodeItem item : items) bits_ |= std::uint32_t{1} << static_cast<int>(item);
  }
  constexpr bool Has(NodeItem item) const {
    const auto code = static_cast<std::uint32_t>(item);
    return code < 32 && (bits_ >> code & 1) != 0;
  }

 private:
  std::uint32_t bits_ = 0;
};

struct NodeTraits {
  NodeKind kind;
  const char* element;  ///< its name in the GenApi schema
  ValueType value;
  ValueSource source;
  ChildRole children;
  ItemSet settings;    ///< what can be configured: value, limits, numbers for true, false and execution
  ItemSet suppliable;  ///< those of the settings that may be a node in place of a constant
};

const NodeTraits& TraitsOf(NodeKind kind);

// Which kinds go together.

/// Whether others may take a number from it.
bool IsNumber(const NodeTraits& node);
/// Whether it may supply settings of `other`.
bool CanSupply(const NodeTraits& node, const NodeTraits& other);
/// Whether it may decide if another is implemented, available or locked.
bool CanBeCondition(const NodeTraits& node);
/// Whether it may add to the address of a register.
bool CanBeOffset(const NodeTraits& node);
/// Whether others may depend on its value as a selector.
bool CanSelect(const NodeTraits& node);
/// Whether it may stand among the children of `parent`.
bool CanBeChild(const NodeTraits& node, const NodeTraits& parent);
/// Whether other nodes may refer to it. Entries have no name of their own in the description.
bool HasName(const NodeTraits& node);

}  // namespace Tarn
