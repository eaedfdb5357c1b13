#include "gevserver/nodes/integer_node.h"

#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

template <>
void TypeDef<IntegerNode>::Init() {
  using Native = Tarn::GevServer::IntegerNode;
  TypeBuilder type(Get(), "tarn.gevserver.IntegerNode",
                   "Represents an integer whose value and limits are constants or come from other nodes.");
  type.Base(TypeObject__IntegerBaseNode__());
  AddCreate<Native>(type);
  AddConfig<&Native::IncrementConfigAsNode, &Native::SetIncrementConfigAsNode, &Native::IncrementConfigAsInt,
            &Native::SetIncrementConfigAsInt>(type, "increment", "increment");
  AddConfig<&Native::MaxConfigAsNode, &Native::SetMaxConfigAsNode, &Native::MaxConfigAsInt,
            &Native::SetMaxConfigAsInt>(type, "max", "maximum");
  AddConfig<&Native::MinConfigAsNode, &Native::SetMinConfigAsNode, &Native::MinConfigAsInt,
            &Native::SetMinConfigAsInt>(type, "min", "minimum");
  AddConfig<&Native::ValueConfigAsNode, &Native::SetValueConfigAsNode, &Native::ValueConfigAsInt,
            &Native::SetValueConfigAsInt>(type, "value", "value");
  AddChainModes(type);
  AddPollingTime(type);
}

}  // namespace _tarn::gevserver
