#include "gevserver/nodes/value_node.h"

#include "core/c_text.h"
#include "core/library_call.h"
#include "core/tarn_exception.h"
#include "core/two_call_text.h"
#include "gevserver/callback_scope.h"
#include "gevserver/id_registry.h"
#include "gevserver/library/tr_gev_server.h"

namespace Tarn::GevServer {

namespace {

using ValueNodes = Private::IdRegistry<ValueNode>;

// Never destroyed: a thread of the library may call back while the process ends.
ValueNodes& Listening() {
  static ValueNodes& nodes = *new ValueNodes;
  return nodes;
}

std::uint64_t RegisterEvent(TR_HANDLE node, std::int32_t event, GSCallback callback, std::uint64_t context) {
  std::uint64_t cookie = 0;
  const TR_STATUS status =
      GSNRegisterEventWithStatus(node, event, callback, ValueNodes::ContextOf(context), &cookie);
  if (status < 0) ThrowStatus(status, "failed to register updated handler");
  return cookie;
}

}  // namespace

ValueNode::~ValueNode() {
  if (read_cookie_ != 0) static_cast<void>(GSNUnregisterEvent(Handle(), GSN_EVENT_READ, read_cookie_));
  if (write_cookie_ != 0) static_cast<void>(GSNUnregisterEvent(Handle(), GSN_EVENT_WRITE, write_cookie_));
  if (event_context_ != 0) Listening().Remove(event_context_);
  on_read_.Clear();
  written_.Clear();
}

void ValueNode::ConnectEvents(const std::weak_ptr<ValueNode>& self) {
  const std::int32_t type = Type();
  if (type == GSN_TYPE_CATEGORY || type == GSN_TYPE_ENUM_ENTRY) return;
  event_context_ = Listening().Add(self);
  read_cookie_ = RegisterEvent(Handle(), GSN_EVENT_READ, OnReadEvent, event_context_);
  write_cookie_ = RegisterEvent(Handle(), GSN_EVENT_WRITE, OnWriteEvent, event_context_);
}

void ValueNode::OnReadEvent(void* context) {
  const Private::CallbackScope scope;
  if (const auto node = Listening().Find(context)) node->on_read_.Call(*node);
}

void ValueNode::OnWriteEvent(void* context) {
  const Private::CallbackScope scope;
  if (const auto node = Listening().Find(context)) {
    node->written_.Call(*node);
    node->updated_.Call();
  }
}

bool ValueNode::IsStreamable() const { return GetInfoAsInt(GSN_INFO_STREAMABLE) != 0; }
void ValueNode::SetIsStreamable(bool streamable) { SetInfoAsInt(GSN_INFO_STREAMABLE, streamable ? 1 : 0); }

std::string ValueNode::ToString() const {
  return ReadTwoCallText(
      [this](char* text, std::size_t* size) { return GSNGetAsString(Handle(), text, size); }, CheckLastError);
}

void ValueNode::FromString(const std::string& text) { CheckLastError(GSNSetAsString(Handle(), CText(text))); }

std::int64_t ValueNode::PollingTime() const { return GetInfoAsInt(GSN_INFO_POLLING_TIME); }

}  // namespace Tarn::GevServer
