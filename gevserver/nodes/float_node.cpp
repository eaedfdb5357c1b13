#include "gevserver/nodes/float_node.h"

#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/make_node.h"

namespace Tarn::GevServer {

std::shared_ptr<FloatNode> FloatNode::Create(std::string_view name, std::optional<std::int32_t> name_space) {
  return Private::CreateFreeNode<FloatNode>(name, name_space, CreateGSFloatNode);
}

}  // namespace Tarn::GevServer
