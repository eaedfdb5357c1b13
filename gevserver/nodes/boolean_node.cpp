#include "gevserver/nodes/boolean_node.h"

#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/boolean_value.h"
#include "gevserver/nodes/make_node.h"

namespace Tarn::GevServer {

std::shared_ptr<BooleanNode> BooleanNode::Create(std::string_view name,
                                                 std::optional<std::int32_t> name_space) {
  return Private::CreateFreeNode<BooleanNode>(name, name_space, CreateGSBooleanNode);
}

bool BooleanNode::Value() const { return Private::GetBoolean(Handle()); }
void BooleanNode::SetValue(bool value) { Private::SetBoolean(Handle(), value); }

std::string BooleanNode::ToString() const { return Private::BooleanText(Value()); }
void BooleanNode::FromString(const std::string& text) { SetValue(Private::ParseBoolean(text)); }

}  // namespace Tarn::GevServer
