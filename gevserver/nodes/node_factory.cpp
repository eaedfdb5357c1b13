#include "gevserver/nodes/node_factory.h"

#include <stdexcept>
#include <utility>

#include "core/tarn_exception.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/boolean_node.h"
#include "gevserver/nodes/category_node.h"
#include "gevserver/nodes/command_node.h"
#include "gevserver/nodes/default_node.h"
#include "gevserver/nodes/enumeration_node.h"
#include "gevserver/nodes/float_node.h"
#include "gevserver/nodes/float_reg_node.h"
#include "gevserver/nodes/int_reg_node.h"
#include "gevserver/nodes/int_swiss_knife_node.h"
#include "gevserver/nodes/integer_node.h"
#include "gevserver/nodes/make_node.h"
#include "gevserver/nodes/node_registry.h"
#include "gevserver/nodes/string_reg_node.h"

namespace Tarn::GevServer::Private {

namespace {

std::int32_t TypeOf(TR_HANDLE handle) {
  std::int32_t type = GSN_TYPE_INVALID;
  const TR_STATUS status = GSNType(handle, &type);
  if (status < 0) ThrowStatus(status, "failed to get node type");
  return type;
}

// The class of a register by its length: 4 bytes, 8 bytes, any other.
template <class Of4, class Of8, class OfAny>
std::shared_ptr<Node> MakeRegister(HandleGuard<Node> handle, std::weak_ptr<NodeMap> map,
                                   const char* length_failure) {
  std::int64_t length = 0;
  const TR_STATUS status = GSNGetInfoAsInteger(handle.Get(), GSN_INFO_REGISTER_LENGTH, &length);
  if (status < 0) ThrowStatus(status, length_failure);
  if (length == 4) return MakeNode<Of4>(std::move(handle), std::move(map));
  if (length == 8) return MakeNode<Of8>(std::move(handle), std::move(map));
  return MakeNode<OfAny>(std::move(handle), std::move(map));
}

std::shared_ptr<Node> MakeOfType(std::int32_t type, HandleGuard<Node> handle, std::weak_ptr<NodeMap> map,
                                 const char* length_failure) {
  switch (type) {
    case GSN_TYPE_INVALID:
      throw std::runtime_error("invalid node type");
    case GSN_TYPE_CATEGORY:
      return MakeNode<CategoryNode>(std::move(handle), std::move(map));
    case GSN_TYPE_INT_REG:
      return MakeRegister<Int32RegNode, Int64RegNode, IntRegNode>(std::move(handle), std::move(map),
                                                                  length_failure);
    case GSN_TYPE_STRING_REG:
      return MakeNode<StringRegNode>(std::move(handle), std::move(map));
    case GSN_TYPE_INTEGER:
      return MakeNode<IntegerNode>(std::move(handle), std::move(map));
    case GSN_TYPE_BOOLEAN:
      return MakeNode<BooleanNode>(std::move(handle), std::move(map));
    case GSN_TYPE_COMMAND:
      return MakeNode<CommandNode>(std::move(handle), std::move(map));
    case GSN_TYPE_ENUMERATION:
      return MakeNode<EnumerationNode>(std::move(handle), std::move(map));
    case GSN_TYPE_ENUM_ENTRY:
      return MakeNode<EnumEntryNode>(std::move(handle), std::move(map));
    case GSN_TYPE_INT_SWISS_KNIFE:
      return MakeNode<IntSwissKnifeNode>(std::move(handle), std::move(map));
    case GSN_TYPE_STRING:
      return MakeNode<StringNode>(std::move(handle), std::move(map));
    case GSN_TYPE_FLOAT:
      return MakeNode<FloatNode>(std::move(handle), std::move(map));
    case GSN_TYPE_FLOAT_REG:
      return MakeRegister<Float32RegNode, Float64RegNode, FloatRegNode>(std::move(handle), std::move(map),
                                                                        length_failure);
    default:
      return MakeNode<DefaultNode>(std::move(handle), std::move(map));
  }
}

}  // namespace

std::shared_ptr<Node> NodeOfHandle(HandleGuard<Node> handle, std::weak_ptr<NodeMap> map,
                                   const char* length_failure) {
  if (auto known = NodeRegistry::Instance().Find(handle.Get())) return known;
  const std::int32_t type = TypeOf(handle.Get());
  return MakeOfType(type, std::move(handle), std::move(map), length_failure);
}

}  // namespace Tarn::GevServer::Private
