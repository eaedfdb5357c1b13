#include "gevserver/nodes/value_node.h"
#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

template <>
void TypeDef<SelectorNode>::Init() {
  TypeBuilder(Get(), "tarn.gevserver.SelectorNode", "Groups other nodes that are dependent on this node.")
      .Base(TypeObject__ValueNode__())
      .ReadOnly<&Native::SelectorNode::IsSelector>("is_selector",
                                                   "Gets whether this node selects at least one other.")
      .ReadOnly<&Native::SelectorNode::SelectedNodes>("selected_nodes",
                                                      "Gets all nodes selected by this node.");
}

}  // namespace _tarn::gevserver
