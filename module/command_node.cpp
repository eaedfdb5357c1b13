#include "gevserver/nodes/command_node.h"

#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

template <>
void TypeDef<CommandNode>::Init() {
  using Native = Tarn::GevServer::CommandNode;
  TypeBuilder type(Get(), "tarn.gevserver.CommandNode", "Represents a command that a client can execute.");
  type.Base(TypeObject__ValueNode__());
  AddCreate<Native>(type);
  type.Method<Signature<&Native::Execute>>(
          "execute",
          {{.summary = "Executes this command.",
            .description = "Writes the command value to the node that supplies this command's value."}})
      .ReadOnly<&Native::IsDone>("is_done", "Gets whether the execution of this command is finished.",
                                 "A command that is not readable is always done.");
  AddConfig<&Native::CommandConfigAsNode, &Native::SetCommandConfigAsNode, &Native::CommandConfigAsInt,
            &Native::SetCommandConfigAsInt>(type, "command", "command value");
  AddConfig<&Native::ValueConfigAsNode, &Native::SetValueConfigAsNode, &Native::ValueConfigAsInt,
            &Native::SetValueConfigAsInt>(type, "value", "value");
  AddFromString(type, "Sets the value of the node from the string value.",
                "\"true\" in any case executes the command, every other text marks it as done.");
  AddNeverStreamable(type, "Commands are never streamable.", "It will always return False.");
  AddChainModes(type);
  AddPollingTime(type);
}

}  // namespace _tarn::gevserver
