#include "gevserver/nodes/integer_node.h"

#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/make_node.h"

namespace Tarn::GevServer {

std::shared_ptr<IntegerNode> IntegerNode::Create(std::string_view name,
                                                 std::optional<std::int32_t> name_space) {
  return Private::CreateFreeNode<IntegerNode>(name, name_space, CreateGSIntegerNode);
}

}  // namespace Tarn::GevServer
