#include "gevserver/nodes/node.h"

#include <stdexcept>

#include "core/c_text.h"
#include "core/library_call.h"
#include "core/tarn_exception.h"
#include "core/two_call_text.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/node_map.h"
#include "gevserver/node_name.h"
#include "gevserver/nodes/node_factory.h"
#include "gevserver/nodes/node_registry.h"

namespace Tarn::GevServer {

namespace {

constexpr std::int64_t kNoImposedAccessMode = -1;

void RequireText(const std::string& text, const char* failure) {
  if (text.empty()) throw std::runtime_error(failure);
}

}  // namespace

Node::Node(Private::NewNode parts) : map_(std::move(parts.map)), handle_(std::move(parts.handle)) {}

Node::~Node() {
  updated_.Clear();
  map_.reset();
  Private::NodeRegistry::Instance().RemoveDead(Handle());
}

std::int32_t Node::AccessMode() const { return GetInfoAsCode(GSN_INFO_ACCESS_MODE); }
std::int32_t Node::CacheMode() const { return GetInfoAsCode(GSN_INFO_CACHING_MODE); }

bool Node::IsReadable() const {
  const std::int32_t mode = AccessMode();
  return mode == GS_ACCESS_READ_ONLY || mode == GS_ACCESS_READ_WRITE;
}

bool Node::IsWritable() const {
  const std::int32_t mode = AccessMode();
  return mode == GS_ACCESS_WRITE_ONLY || mode == GS_ACCESS_READ_WRITE;
}

std::int32_t Node::Type() const {
  std::int32_t type = GSN_TYPE_INVALID;
  CheckLastError(GSNType(Handle(), &type));
  return type;
}

std::string Node::Name() const { return std::string(NameSpacePrefix(NameSpace())) + NameOnly(); }
std::string Node::NameOnly() const { return GevServer::NameOnly(GetInfoAsString(GSN_INFO_NAME)); }
std::int32_t Node::NameSpace() const { return GetInfoAsCode(GSN_INFO_NAME_SPACE); }

std::string Node::DisplayName() const { return GetInfoAsString(GSN_INFO_DISPLAY_NAME); }
void Node::SetDisplayName(const std::string& text) {
  RequireText(text, "Display name must not be empty");
  SetInfo(GSN_INFO_DISPLAY_NAME, text);
}

std::string Node::ToolTip() const { return GetInfoAsString(GSN_INFO_TOOL_TIP); }
void Node::SetToolTip(const std::string& text) {
  RequireText(text, "Tooltip short descriptive text must not be empty");
  SetInfo(GSN_INFO_TOOL_TIP, text);
}

std::string Node::Description() const { return GetInfoAsString(GSN_INFO_DESCRIPTION); }
void Node::SetDescription(const std::string& text) {
  RequireText(text, "Description must not be empty");
  SetInfo(GSN_INFO_DESCRIPTION, text);
}

std::int32_t Node::Visibility() const { return GetInfoAsCode(GSN_INFO_VISIBILITY); }
void Node::SetVisibility(std::int32_t visibility) { SetInfoAsInt(GSN_INFO_VISIBILITY, visibility); }
std::int64_t Node::EventId() const { return GetInfoAsInt(GSN_INFO_EVENT_ID); }
void Node::SetEventId(std::int64_t id) { SetInfoAsInt(GSN_INFO_EVENT_ID, id); }

std::optional<std::int32_t> Node::ImposedAccessMode() const {
  const std::int32_t mode = GetInfoAsCode(GSN_INFO_IMPOSED_ACCESS_MODE);
  return mode == kNoImposedAccessMode ? std::nullopt : std::optional(mode);
}
void Node::SetImposedAccessMode(std::optional<std::int32_t> mode) {
  SetInfoAsInt(GSN_INFO_IMPOSED_ACCESS_MODE, mode ? std::int64_t{*mode} : kNoImposedAccessMode);
}

bool Node::IsImplemented() const { return GetInfoAsInt(GSN_INFO_IS_IMPLEMENTED) != 0; }
bool Node::IsFeature() const { return GetInfoAsInt(GSN_INFO_IS_FEATURE) != 0; }
bool Node::IsDeprecated() const { return GetInfoAsInt(GSN_INFO_IS_DEPRECATED) != 0; }

std::shared_ptr<Node> Node::IsImplementedConfig() const { return GetInfoAsNode(GSN_INFO_IS_IMPLEMENTED); }
void Node::SetIsImplementedConfig(const std::shared_ptr<Node>& node) {
  SetInfo(GSN_INFO_IS_IMPLEMENTED, node);
}
std::shared_ptr<Node> Node::IsAvailableConfig() const { return GetInfoAsNode(GSN_INFO_IS_AVAILABLE); }
void Node::SetIsAvailableConfig(const std::shared_ptr<Node>& node) { SetInfo(GSN_INFO_IS_AVAILABLE, node); }
std::shared_ptr<Node> Node::IsLockedConfig() const { return GetInfoAsNode(GSN_INFO_IS_LOCKED); }
void Node::SetIsLockedConfig(const std::shared_ptr<Node>& node) { SetInfo(GSN_INFO_IS_LOCKED, node); }
std::shared_ptr<Node> Node::AliasNode() const { return GetInfoAsNode(GSN_INFO_ALIAS); }
void Node::SetAliasNode(const std::shared_ptr<Node>& node) { SetInfo(GSN_INFO_ALIAS, node); }

void Node::Add(const std::shared_ptr<Node>& node, std::int32_t kind) {
  if (!node) throw std::runtime_error("Added Node must not be nullptr");
  const auto map = NodeMap();
  if (!map) throw std::runtime_error("Parent Node must have node map");
  const auto other_map = node->NodeMap();
  if (other_map && other_map != map) {
    throw std::runtime_error("Added Node must be in the same node map as this Parent");
  }
  // Only entries join the map through their parent: clients reach them through their enumeration alone.
  const bool entry = IsEntryOfThis(*node, kind);
  if (entry && !other_map) node->map_ = map;
  CheckLastError(GSNAddNode(Handle(), kind, node->Handle()));
  if (entry) map->ListEntry(node);
}

bool Node::Remove(const std::shared_ptr<Node>& node, std::int32_t kind) {
  if (!node) return false;
  const TR_STATUS status = GSNRemoveNode(Handle(), kind, node->Handle());
  if (status == TR_E_NOT_FOUND) return false;
  CheckLastError(status);
  const auto map = NodeMap();
  if (map && IsEntryOfThis(*node, kind)) map->Refresh({node});
  return true;
}

bool Node::IsEntryOfThis(const Node& node, std::int32_t kind) const {
  return kind == GSN_LIST_CHILD && Type() == GSN_TYPE_ENUMERATION && node.Type() == GSN_TYPE_ENUM_ENTRY;
}

std::int64_t Node::RelatedCount(std::int32_t kind) const {
  std::int64_t count = 0;
  const TR_STATUS status = GSNListCount(Handle(), kind, &count);
  if (status < 0) ThrowStatus(status, "failed calling GSNListCount");
  return count;
}

std::vector<std::shared_ptr<Node>> Node::Related(std::int32_t kind) const {
  std::vector<std::shared_ptr<Node>> nodes;
  const std::int64_t count = RelatedCount(kind);
  for (std::int64_t index = 0; index < count; ++index) {
    std::size_t name_size = 0;
    TR_HANDLE related = nullptr;
    CheckLastError(GSNListEx(Handle(), kind, index, nullptr, &name_size, &related));
    nodes.push_back(ObjectOf(related));
  }
  return nodes;
}

std::vector<std::pair<std::string, std::shared_ptr<Node>>> Node::NamedRelated(std::int32_t kind) const {
  std::vector<std::pair<std::string, std::shared_ptr<Node>>> named;
  const auto nodes = Related(kind);
  for (std::size_t index = 0; index < nodes.size(); ++index) {
    std::string name = ReadTwoCallText(
        [&](char* text, std::size_t* size) {
          return GSNListEx(Handle(), kind, static_cast<std::int64_t>(index), text, size, nullptr);
        },
        CheckLastError);
    named.emplace_back(std::move(name), nodes[index]);
  }
  return named;
}

std::string Node::GetInfoAsString(std::int32_t info) const {
  return ReadTwoCallText(
      [this, info](char* text, std::size_t* size) { return GSNGetInfoAsString(Handle(), info, text, size); },
      CheckLastError);
}

std::int64_t Node::GetInfoAsInt(std::int32_t info) const {
  std::int64_t value = 0;
  CheckLastError(GSNGetInfoAsInteger(Handle(), info, &value));
  return value;
}

std::int32_t Node::GetInfoAsCode(std::int32_t info) const {
  return static_cast<std::int32_t>(GetInfoAsInt(info));
}

double Node::GetInfoAsFloat(std::int32_t info) const {
  double value = 0.0;
  CheckLastError(GSNGetInfoAsFloat(Handle(), info, &value));
  return value;
}

std::shared_ptr<Node> Node::GetInfoAsNode(std::int32_t info) const {
  TR_HANDLE related = nullptr;
  CheckLastError(GSNGetInfoAsNode(Handle(), info, &related));
  return ObjectOf(related);
}

void Node::SetInfoAsString(std::int32_t info, const std::string& text) {
  CheckLastError(GSNSetInfoAsString(Handle(), info, CText(text)));
}

void Node::SetInfoAsInt(std::int32_t info, std::int64_t value) {
  CheckLastError(GSNSetInfoAsInteger(Handle(), info, value));
}

void Node::SetInfoAsFloat(std::int32_t info, double value) {
  CheckLastError(GSNSetInfoAsFloat(Handle(), info, value));
}

void Node::SetInfo(std::int32_t info, const std::string& text) {
  RequireText(text, "value to set must not be empty");
  SetInfoAsString(info, text);
}

void Node::SetInfo(std::int32_t info, const std::shared_ptr<Node>& node) {
  if (!node) throw std::runtime_error("node to set must not be empty");
  CheckLastError(GSNSetInfoAsNode(Handle(), info, node->Handle()));
}

std::shared_ptr<Node> Node::ObjectOf(TR_HANDLE handle) const {
  if (handle == nullptr) return nullptr;
  return Private::NodeOfHandle(HandleGuard<Node>(handle), map_, Private::kNoLengthOfNode);
}

}  // namespace Tarn::GevServer
