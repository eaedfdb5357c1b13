#include "gevserver/nodes/category_node.h"

#include <stdexcept>

#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/make_node.h"

namespace Tarn::GevServer {

std::shared_ptr<CategoryNode> CategoryNode::Create(std::string_view name,
                                                   std::optional<std::int32_t> name_space) {
  return Private::CreateFreeNode<CategoryNode>(name, name_space, CreateGSCategoryNode);
}

void CategoryNode::SetIsStreamable(bool) { throw std::runtime_error("Category nodes cannot be streamed"); }

void CategoryNode::FromString(const std::string&) { throw std::runtime_error("not implemented"); }

}  // namespace Tarn::GevServer
