#include "gevserver/nodes/number_base_nodes.h"

#include "module/node_members.h"

// The base types of integers and of floating-point numbers.

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

namespace {

/// \tparam X  the native base class
template <class X>
void AddNumberMembers(TypeBuilder& type) {
  type.Base(TypeObject__SelectorNode__())
      .template ReadOnly<&X::Increment>("increment", "Gets the increment of this node's value.",
                                        "A value is the minimum plus a multiple of the increment.")
      .template ReadOnly<&X::Max>("max", "Gets the largest value of this node.")
      .template ReadOnly<&X::Min>("min", "Gets the smallest value of this node.")
      .template ReadWrite<&X::Representation, &X::SetRepresentation>(
          "representation",
          "Gets or sets the representation of this node's value (see tarn.NumberRepresentation).",
          kConfigurationOnly)
      .template ReadWrite<&X::Value, &X::SetValue>(
          "value", "Gets or sets the value of this node.",
          "A value outside min to max, or off the increment, is refused. Possible in every "
          "tarn.gevserver.State.");
  AddFromString(type, "Sets the value of the node from the string value.");
}

}  // namespace

template <>
void TypeDef<IntegerBaseNode>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.IntegerBaseNode", "Represents the integer nodes' base class.");
  AddNumberMembers<Native::IntegerBaseNode>(type);
  type.ReadOnly<&Native::IntegerBaseNode::Unit>("unit", "Gets the physical unit of this node's value.",
                                                "Always empty: integers carry no unit.");
}

template <>
void TypeDef<FloatBaseNode>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.FloatBaseNode",
                   "Represents the floating-point number nodes' base class.");
  AddNumberMembers<Native::FloatBaseNode>(type);
}

}  // namespace _tarn::gevserver
