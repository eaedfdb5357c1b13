#include "gevserver/server_base.h"

#include <array>
#include <new>

#include "camera/base/endpoint.h"
#include "core/c_text.h"
#include "core/two_call_text.h"
#include "gevserver/address_text.h"
#include "gevserver/callback_scope.h"
#include "gevserver/id_registry.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/node_map.h"
#include "gevserver/server_call.h"

namespace Tarn::GevServer {

namespace {

using StateRegistry = Private::IdRegistry<Private::ServerState>;

// Never destroyed: a thread of the library may call back while the process ends.
StateRegistry& States() {
  static StateRegistry& states = *new StateRegistry;
  return states;
}

// A callback holds the state word alone, so that it never destroys a server on a thread of the library.
template <std::int32_t NewState>
void OnEvent(void* context) {
  const Private::CallbackScope scope;
  if (const auto state = States().Find(context)) state->Event(NewState);
}

struct EventRow {
  std::int32_t event;
  GSCallback callback;
};
constexpr std::array<EventRow, 4> kEvents = {{
    {GS_EVENT_CONNECTED, OnEvent<State::Connected>},
    {GS_EVENT_DISCONNECTED, OnEvent<State::Disconnected>},
    {GS_EVENT_ACQUISITION_START, OnEvent<State::AcquisitionEnabled>},
    {GS_EVENT_ACQUISITION_STOP, OnEvent<State::Connected>},
}};

void CheckServer(TR_STATUS status) { CheckServerCall(kServerPrefix, status); }

template <class Query>
NetworkConnection AskEndpoint(TR_HANDLE server, Query query) {
  Endpoint endpoint;
  CheckServer(query(server, &endpoint.address, &endpoint.port));
  return {DottedAddress(endpoint.address), endpoint.port};
}

}  // namespace

ServerBase::ServerBase()
    : state_(std::make_shared<Private::ServerState>()), event_context_(States().Add(state_)) {}

ServerBase::~ServerBase() { States().Remove(event_context_); }

void ServerBase::RegisterEvents() {
  for (const EventRow& row : kEvents) {
    std::uint64_t cookie = 0;
    CheckServer(GSRegisterEvent(Handle(), row.event, row.callback, StateRegistry::ContextOf(event_context_),
                                &cookie));
  }
}

std::int32_t ServerBase::State() const noexcept { return state_->Code(); }

std::int32_t ServerBase::DriverType() const {
  std::int32_t type = GS_DRIVER_AUTO;
  CheckServer(GSDriverType(Handle(), &type));
  return type;
}

std::string ServerBase::UserVersion() const { return GetInfoAsString(GS_INFO_SERVER_USER_VERSION); }

void ServerBase::SetUserVersion(const std::string& text) {
  CheckServer(GSSetInfoAsString(Handle(), GS_INFO_SERVER_USER_VERSION, CText(text)));
}

NetworkConnection ServerBase::LocalEndpoint() const { return AskEndpoint(Handle(), GSGetLocalIPv4); }
NetworkConnection ServerBase::RemoteEndpoint() const { return AskEndpoint(Handle(), GSGetRemoteIPv4); }

std::shared_ptr<NodeMap> ServerBase::NodeMap() {
  const MutexLock lock(node_map_mutex_);
  if (!node_map_) node_map_ = GevServer::NodeMap::Create(shared_from_this());
  return node_map_;
}

void ServerBase::Start(const std::string& address) { ServerBase::Start(LooseAddress(address)); }

void ServerBase::Start(std::uint32_t address) {
  start_stop_.EnterStart();
  const Private::StartStopScope scope(start_stop_);
  state_->BeginStart();
  const TR_STATUS status = GSStartIPv4(Handle(), address);
  if (status < 0) state_->StartFailed();
  CheckServer(status);
  state_->StartSucceeded();
}

void ServerBase::Stop() {
  if (!start_stop_.EnterStop()) return;
  const Private::StartStopScope scope(start_stop_);
  CheckServer(GSStop(Handle()));
  state_->Stopped();
}

void ServerBase::ForgetParent() {
  new (&start_stop_) Private::StartStopLock;  // whoever held it does not exist here
  state_->Stopped();
}

std::string ServerBase::GetInfoAsString(std::int32_t info) const {
  return ReadTwoCallText(
      [this, info](char* text, std::size_t* size) { return ::GSGetInfoAsString(Handle(), info, text, size); },
      CheckServer);
}

}  // namespace Tarn::GevServer
