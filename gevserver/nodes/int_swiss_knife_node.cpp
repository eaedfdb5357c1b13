#include "gevserver/nodes/int_swiss_knife_node.h"

#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/make_node.h"

namespace Tarn::GevServer {

std::shared_ptr<IntSwissKnifeNode> IntSwissKnifeNode::Create(std::string_view name,
                                                             std::optional<std::int32_t> name_space) {
  return Private::CreateFreeNode<IntSwissKnifeNode>(name, name_space, CreateGSIntSwissKnifeNode);
}

std::map<std::string, std::shared_ptr<Node>> IntSwissKnifeNode::Variables() const {
  std::map<std::string, std::shared_ptr<Node>> variables;
  for (auto& [name, node] : NamedRelated(GSN_LIST_CHILD)) variables.emplace(name, node);
  return variables;
}

}  // namespace Tarn::GevServer
