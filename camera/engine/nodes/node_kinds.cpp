#include "camera/engine/nodes/node_kinds.h"

#include <algorithm>
#include <array>

namespace Tarn {
namespace {

using K = NodeKind;
using Type = ValueType;
using From = ValueSource;
using Has = ChildRole;

constexpr ItemSet kNone{};
constexpr ItemSet kValue{NodeItem::Value};
constexpr ItemSet kNumber{NodeItem::Value, NodeItem::Min, NodeItem::Max, NodeItem::Increment};
constexpr ItemSet kBoolean{NodeItem::Value, NodeItem::OnValue, NodeItem::OffValue};
constexpr ItemSet kCommand{NodeItem::Value, NodeItem::OnValue};

// In the order of the codes.
// clang-format off
constexpr std::array kRows = std::to_array<NodeTraits>({
    // kind            element          value              source          children       settings  suppliable
    {K::Category,      "Category",      Type::None,        From::None,     Has::Member,   kNone,    kNone},
    {K::IntReg,        "IntReg",        Type::Integer,     From::Register, Has::None,     kNone,    kNone},
    {K::StringReg,     "StringReg",     Type::Text,        From::Register, Has::None,     kNone,    kNone},
    {K::Integer,       "Integer",       Type::Integer,     From::Setting,  Has::None,     kNumber,  kNumber},
    {K::Boolean,       "Boolean",       Type::Boolean,     From::Setting,  Has::None,     kBoolean, kValue},
    {K::Command,       "Command",       Type::Command,     From::Setting,  Has::None,     kCommand, kCommand},
    {K::Enumeration,   "Enumeration",   Type::Enumeration, From::Setting,  Has::Entry,    kValue,   kValue},
    {K::EnumEntry,     "EnumEntry",     Type::Entry,       From::Setting,  Has::None,     kValue,   kNone},
    {K::IntSwissKnife, "IntSwissKnife", Type::Integer,     From::Formula,  Has::Variable, kNone,    kNone},
    {K::String,        "String",        Type::Text,        From::Setting,  Has::None,     kValue,   kValue},
    {K::Float,         "Float",         Type::Float,       From::Setting,  Has::None,     kNumber,  kNumber},
    {K::FloatReg,      "FloatReg",      Type::Float,       From::Register, Has::None,     kNone,    kNone},
});
// clang-format on

constexpr std::size_t PlaceOf(NodeKind kind) {
  return static_cast<std::size_t>(kind) - static_cast<std::size_t>(NodeKind::Category);
}

static_assert(std::ranges::all_of(kRows,
                                  [](const NodeTraits& row) { return &row == &kRows[PlaceOf(row.kind)]; }));

}  // namespace

const NodeTraits& TraitsOf(NodeKind kind) { return kRows.at(PlaceOf(kind)); }

bool IsNumber(const NodeTraits& node) {
  return node.value == ValueType::Integer || node.value == ValueType::Float ||
         node.value == ValueType::Boolean || node.value == ValueType::Enumeration;
}

bool CanSupply(const NodeTraits& node, const NodeTraits& other) {
  if (other.value == ValueType::Text) return node.value == ValueType::Text;
  const bool boolean_for_float = other.value == ValueType::Float && node.value == ValueType::Boolean;
  return IsNumber(node) && !boolean_for_float;
}

bool CanBeCondition(const NodeTraits& node) { return IsNumber(node) && node.value != ValueType::Float; }

bool CanBeOffset(const NodeTraits& node) { return CanBeCondition(node) && node.value != ValueType::Boolean; }

bool CanSelect(const NodeTraits& node) { return IsNumber(node) || node.value == ValueType::Text; }

bool CanBeChild(const NodeTraits& node, const NodeTraits& parent) {
  switch (parent.children) {
    case ChildRole::Member:
      return HasName(node);
    case ChildRole::Entry:
      return node.value == ValueType::Entry;
    case ChildRole::Variable:
      return IsNumber(node);
    case ChildRole::None:
      break;
  }
  return false;
}

bool HasName(const NodeTraits& node) { return node.value != ValueType::Entry; }

}  // namespace Tarn
