#include "gevserver/nodes/boolean_node.h"

#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

template <>
void TypeDef<BooleanNode>::Init() {
  using Native = Tarn::GevServer::BooleanNode;
  TypeBuilder type(Get(), "tarn.gevserver.BooleanNode", "Represents true or false over an integer value.");
  type.Base(TypeObject__ValueNode__());
  AddCreate<Native>(type);
  type.ReadWrite<&Native::Value, &Native::SetValue>("value", "Gets or sets the value of this node.",
                                                    "Possible in every tarn.gevserver.State.")
      .ReadWrite<&Native::OnValue, &Native::SetOnValue>(
          "on_value", "Gets or sets the integer value that is written for true.", kConfigurationOnly)
      .ReadWrite<&Native::OffValue, &Native::SetOffValue>(
          "off_value", "Gets or sets the integer value that is written for false.", kConfigurationOnly);
  AddConfig<&Native::ValueConfigAsNode, &Native::SetValueConfigAsNode, &Native::ValueConfigAsInt,
            &Native::SetValueConfigAsInt>(type, "value", "value");
  AddFromString(type, "Sets the value of the node from the string value.",
                "\"true\" in any case sets true, every other text sets false.");
  AddChainModes(type);
  AddPollingTime(type);
}

}  // namespace _tarn::gevserver
