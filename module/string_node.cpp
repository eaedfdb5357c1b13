#include "gevserver/nodes/string_node.h"

#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

template <>
void TypeDef<StringNode>::Init() {
  using Native = Tarn::GevServer::StringNode;
  TypeBuilder type(Get(), "tarn.gevserver.StringNode",
                   "Represents a text that is a constant or comes from another node.");
  type.Base(TypeObject__SelectorNode__());
  AddCreate<Native>(type);
  type.ReadWrite<&Native::Value, &Native::SetValue>("value", "Gets or sets the value of this node.",
                                                    "Possible in every tarn.gevserver.State.");
  AddConfig<&Native::ValueConfigAsNode, &Native::SetValueConfigAsNode, &Native::ValueConfigAsString,
            &Native::SetValueConfigAsString>(type, "value", "value");
  AddChainModes(type);
}

}  // namespace _tarn::gevserver
