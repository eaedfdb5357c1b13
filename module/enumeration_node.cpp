#include "gevserver/nodes/enumeration_node.h"

#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

template <>
void TypeDef<EnumerationNode>::Init() {
  using Native = Tarn::GevServer::EnumerationNode;
  TypeBuilder type(Get(), "tarn.gevserver.EnumerationNode", "Represents a choice among named values.",
                   "Add entries with tarn.gevserver.NodeList.Child; an entry that is in no node map joins "
                   "the node map of its enumeration.");
  type.Base(TypeObject__SelectorNode__());
  AddCreate<Native>(type);
  type.ReadOnly<&Native::Entries>("entries", "Gets all enum entries of this enumeration.")
      .ReadWrite<&Native::SymbolicValue, &Native::SetSymbolicValue>(
          "value", "Gets or sets the symbolic value of this node.",
          "The name of the current entry. Possible in every tarn.gevserver.State.")
      .ReadOnly<&Native::NumericValue>("numeric_value", "Gets the numeric value of the current entry.");
  AddConfig<&Native::ValueConfigAsNode, &Native::SetValueConfigAsNode, &Native::ValueConfigAsInt,
            &Native::SetValueConfigAsInt>(type, "value", "value");
  AddFromString(type, "Same as assigning to Value.", "", "Symbolic value to set.");
}

}  // namespace _tarn::gevserver
