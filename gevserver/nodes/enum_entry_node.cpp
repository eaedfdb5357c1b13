#include "gevserver/nodes/enum_entry_node.h"

#include <stdexcept>

#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/make_node.h"

namespace Tarn::GevServer {

std::shared_ptr<EnumEntryNode> EnumEntryNode::Create(std::string_view name,
                                                     std::optional<std::int32_t> name_space) {
  return Private::CreateFreeNode<EnumEntryNode>(name, name_space, CreateGSEnumEntryNode);
}

void EnumEntryNode::SetIsStreamable(bool) { throw std::runtime_error("EnumEntry nodes cannot be streamed"); }

void EnumEntryNode::FromString(const std::string&) {
  throw std::runtime_error("Symbolic values cannot be set as value");
}

}  // namespace Tarn::GevServer
