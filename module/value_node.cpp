#include "gevserver/nodes/value_node.h"

#include "module/node_listeners.h"
#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

template <>
void TypeDef<ValueNode>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.ValueNode", "Base class for all nodes, that have a value.");
  type.Base(TypeObject__Node__())
      .ReadWrite<&Native::ValueNode::IsStreamable, &Native::ValueNode::SetIsStreamable>(
          "is_streamable", "Gets whether this node should be used, when the camera settings are stared.",
          kConfigurationOnly);
  AddPollingTime(type);
  AddFromString(type, "Sets the value of the node from the string value.");
  AddListener<&RegisterEventWrittenUpdated, &UnregisterEventWrittenUpdated>(
      type, "event_written_updated", "Registers a listener to node written event.",
      "Manually unregister a listener from the node written event.");
  AddListener<&RegisterEventOnReadUpdated, &UnregisterEventOnReadUpdated>(
      type, "event_on_read_updated", "Registers a listener to node on read event.",
      "Manually unregister a listener from the node on read event.");
}

}  // namespace _tarn::gevserver
