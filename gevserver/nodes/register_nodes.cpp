/// Creation of register nodes of all kinds.

#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/float_reg_node.h"
#include "gevserver/nodes/int_reg_node.h"
#include "gevserver/nodes/make_node.h"
#include "gevserver/nodes/string_reg_node.h"

namespace Tarn::GevServer {

namespace {

template <class T, class Create>
std::shared_ptr<T> CreateAt(std::string_view name, std::optional<std::int32_t> name_space,
                            std::int64_t address, Create create) {
  return Private::CreateFreeNode<T>(name, name_space,
                                    [create, address](const char* name_only, std::int32_t space) {
                                      return create(name_only, space, address);
                                    });
}

}  // namespace

std::shared_ptr<Int32RegNode> Int32RegNode::Create(std::string_view name,
                                                   std::optional<std::int32_t> name_space,
                                                   std::int64_t address) {
  return CreateAt<Int32RegNode>(name, name_space, address, CreateGSInt32Node);
}

std::shared_ptr<Int64RegNode> Int64RegNode::Create(std::string_view name,
                                                   std::optional<std::int32_t> name_space,
                                                   std::int64_t address) {
  return CreateAt<Int64RegNode>(name, name_space, address, CreateGSInt64Node);
}

std::shared_ptr<Float32RegNode> Float32RegNode::Create(std::string_view name,
                                                       std::optional<std::int32_t> name_space,
                                                       std::int64_t address) {
  return CreateAt<Float32RegNode>(name, name_space, address, CreateGSFloat32Node);
}

std::shared_ptr<Float64RegNode> Float64RegNode::Create(std::string_view name,
                                                       std::optional<std::int32_t> name_space,
                                                       std::int64_t address) {
  return CreateAt<Float64RegNode>(name, name_space, address, CreateGSFloat64Node);
}

std::shared_ptr<StringRegNode> StringRegNode::Create(std::string_view name, std::int64_t length,
                                                     std::optional<std::int32_t> name_space,
                                                     std::int64_t address) {
  return Private::CreateFreeNode<StringRegNode>(
      name, name_space, [address, length](const char* name_only, std::int32_t space) {
        return CreateGSStringRegNode(name_only, space, address, length);
      });
}

}  // namespace Tarn::GevServer
