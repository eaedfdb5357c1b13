#include "gevserver/nodes/float_node.h"

#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

template <>
void TypeDef<FloatNode>::Init() {
  using Native = Tarn::GevServer::FloatNode;
  TypeBuilder type(
      Get(), "tarn.gevserver.FloatNode",
      "Represents a floating-point number whose value and limits are constants or come from other nodes.");
  type.Base(TypeObject__FloatBaseNode__());
  AddCreate<Native>(type);
  AddConfig<&Native::IncrementConfigAsNode, &Native::SetIncrementConfigAsNode,
            &Native::IncrementConfigAsFloat, &Native::SetIncrementConfigAsFloat>(type, "increment",
                                                                                 "increment");
  AddConfig<&Native::MaxConfigAsNode, &Native::SetMaxConfigAsNode, &Native::MaxConfigAsFloat,
            &Native::SetMaxConfigAsFloat>(type, "max", "maximum");
  AddConfig<&Native::MinConfigAsNode, &Native::SetMinConfigAsNode, &Native::MinConfigAsFloat,
            &Native::SetMinConfigAsFloat>(type, "min", "minimum");
  AddConfig<&Native::ValueConfigAsNode, &Native::SetValueConfigAsNode, &Native::ValueConfigAsFloat,
            &Native::SetValueConfigAsFloat>(type, "value", "value");
  AddChainModes(type);
  AddPollingTime(type);
  type.ReadWrite<&Native::Unit, &Native::SetUnit>(
          "unit", "Gets or sets the physical unit of this node's value.", kConfigurationOnly)
      .ReadWrite<&Native::DisplayPrecision, &Native::SetDisplayPrecision>(
          "display_precision", "Gets or sets the current display precision value.",
          WithConfigurationRule("The number of digits to show."));
}

}  // namespace _tarn::gevserver
