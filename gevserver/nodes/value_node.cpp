#include "gevserver/nodes/value_node.h"

#include "core/c_text.h"
#include "core/library_call.h"
#include "core/tarn_exception.h"
#include "core/two_call_text.h"
#include "gevserver/callback_scope.h"
#include "gevserver/id_registry.h"
#include "gevserver/library/tr_gev_server.h"

// Other libraries of the interface lack it; they tell all events of a node.
#pragma weak GSNSetEventActive

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

/// Has the library tell an event or not, as `wanted()` says. Who changes the listeners asks behind the change, so
/// of two threads that do so at the same time the last one leaves it right.
template <class Wanted>
void SetActive(TR_HANDLE node, std::int32_t event, std::uint64_t cookie, Wanted wanted) {
  if (cookie == 0 || &GSNSetEventActive == nullptr) return;
  bool active = false;
  do {
    active = wanted();
    static_cast<void>(GSNSetEventActive(node, event, cookie, active));
  } while (active != wanted());
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
  OnListenersChanged();
}

void ValueNode::OnListenersChanged() {
  SetActive(Handle(), GSN_EVENT_READ, read_cookie_, [this] { return !on_read_.Empty(); });
  SetActive(Handle(), GSN_EVENT_WRITE, write_cookie_,
            [this] { return !written_.Empty() || !updated_.Empty(); });
}

std::uint64_t ValueNode::RegisterOnRead(NodeCallback callback) {
  const std::uint64_t cookie = on_read_.Register(std::move(callback));
  OnListenersChanged();
  return cookie;
}

bool ValueNode::UnregisterOnRead(std::uint64_t cookie) {
  const bool found = on_read_.Unregister(cookie);
  OnListenersChanged();
  return found;
}

std::uint64_t ValueNode::RegisterWritten(NodeCallback callback) {
  const std::uint64_t cookie = written_.Register(std::move(callback));
  OnListenersChanged();
  return cookie;
}

bool ValueNode::UnregisterWritten(std::uint64_t cookie) {
  const bool found = written_.Unregister(cookie);
  OnListenersChanged();
  return found;
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
