#include "gevserver/nodes/command_node.h"

#include <stdexcept>

#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/boolean_value.h"
#include "gevserver/nodes/make_node.h"

namespace Tarn::GevServer {

std::shared_ptr<CommandNode> CommandNode::Create(std::string_view name,
                                                 std::optional<std::int32_t> name_space) {
  return Private::CreateFreeNode<CommandNode>(name, name_space, CreateGSCommandNode);
}

void CommandNode::Execute() { Private::SetBoolean(Handle(), true); }

bool CommandNode::IsDone() const { return !IsReadable() || Private::GetBoolean(Handle()); }

void CommandNode::SetIsStreamable(bool) { throw std::runtime_error("Command nodes cannot be streamed"); }

std::string CommandNode::ToString() const { return Private::BooleanText(Private::GetBoolean(Handle())); }
void CommandNode::FromString(const std::string& text) {
  Private::SetBoolean(Handle(), Private::ParseBoolean(text));
}

}  // namespace Tarn::GevServer
