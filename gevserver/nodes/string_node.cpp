#include "gevserver/nodes/string_node.h"

#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/make_node.h"

namespace Tarn::GevServer {

std::shared_ptr<StringNode> StringNode::Create(std::string_view name,
                                               std::optional<std::int32_t> name_space) {
  return Private::CreateFreeNode<StringNode>(name, name_space, CreateGSStringNodeEx);
}

}  // namespace Tarn::GevServer
