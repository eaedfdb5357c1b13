#include "camera/engine/control/control_session.h"

#include <algorithm>
#include <chrono>

#include "camera/engine/registers/bootstrap_rules.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kKeyTries = 3;
constexpr std::chrono::seconds kNextKeyTry{1};

}  // namespace

ControlSession::ControlSession(FeatureTree& tree, DeviceCounters& counters, std::uint64_t secret)
    : tree_(tree), counters_(counters), key_tries_(kKeyTries, kNextKeyTry, secret) {}

bool ControlSession::KnowsKey(std::uint32_t value) const {
  return ControlPrivilegeBits::SwitchoverKey::Get(value) ==
         Switchover::Key::Get(tree_.Memory().Load32(Bootstrap::kSwitchoverKey));
}

bool ControlSession::Refuses(Endpoint who, std::uint32_t value, Instant now) const {
  if (!privilege_.NeedsKey(who, value)) return privilege_.Refuses(who, value);
  return !KnowsKey(value) || !key_tries_.Has(who.address, 1, now);
}

WireStatus ControlSession::Write(Endpoint who, std::uint32_t value, Instant now) {
  if (privilege_.NeedsKey(who, value) && !KnowsKey(value)) {
    ++counters_.wrong_switchover_keys;
    key_tries_.Take(who.address, 1, now);
  }
  if (Refuses(who, value, now)) return WireStatus::AccessDenied;
  const Endpoint before = privilege_.Primary();
  privilege_.Write(who, value);
  if (!privilege_.Held()) {
    if (before != Endpoint{}) End();
    return WireStatus::Success;
  }
  if (before != Endpoint{} && before != who) RestoreHeartbeat();
  if (before != who) ++number_;
  Heard(who, now);
  ShowPrivilege();
  if (before == Endpoint{}) ForgetDestinations();
  return WireStatus::Success;
}

void ControlSession::OnClientConfigured() {
  const std::uint32_t configuration = tree_.Memory().Load32(Bootstrap::kControlConfiguration);
  heartbeat_off_by_client_ = ControlConfiguration::HeartbeatDisable::Get(configuration) != 0;
}

void ControlSession::Heard(Endpoint who, Instant when) {
  if (privilege_.IsPrimary(who)) last_heard_ = std::max(last_heard_, when);
}

Instant ControlSession::HeartbeatDeadline(std::optional<Instant> waits_since) const {
  const SparseMemory& memory = tree_.Memory();
  const std::uint32_t configuration = memory.Load32(Bootstrap::kControlConfiguration);
  if (!privilege_.Held() || ControlConfiguration::HeartbeatDisable::Get(configuration) != 0)
    return Instant::max();
  const Instant silent = last_heard_ + std::chrono::milliseconds(memory.Load32(Bootstrap::kHeartbeatTimeout));
  if (!waits_since) return silent;
  return std::max(silent, *waits_since + std::chrono::milliseconds(
                                             memory.Load32(ManufacturerRegister::kListenerTimeout)));
}

void ControlSession::ShowPrivilege() {
  SparseMemory& memory = tree_.Memory();
  memory.Store32(Bootstrap::kControlPrivilege, privilege_.Register());
  memory.Store32(Bootstrap::kPrimaryPort, privilege_.Primary().port);
  memory.Store32(Bootstrap::kPrimaryAddress, privilege_.Primary().address);
  tree_.NoteStore(Bootstrap::kControlPrivilege);
}

/// An earlier client's addresses are not the new one's to send to. Who takes control over by key goes on with
/// what the client before chose.
void ControlSession::ForgetDestinations() {
  SparseMemory& memory = tree_.Memory();
  for (const std::uint32_t reg : {Bootstrap::kMessageDestination, Bootstrap::kStreamDestination}) {
    if (IsAllowedDestination(memory.Load32(reg), privilege_.Primary().address)) continue;
    memory.Store32(reg, 0);
    tree_.NoteStore(reg);
  }
}

void ControlSession::RestoreHeartbeat() {
  if (!heartbeat_off_by_client_) return;
  heartbeat_off_by_client_ = false;
  SparseMemory& memory = tree_.Memory();
  memory.Store32(Bootstrap::kControlConfiguration, ControlConfiguration::HeartbeatDisable::With(
                                                       memory.Load32(Bootstrap::kControlConfiguration), 0));
}

void ControlSession::End() {
  privilege_.Release();
  last_heard_ = {};
  RestoreHeartbeat();
  ShowPrivilege();
  for (const std::uint32_t port : {Bootstrap::kMessagePort, Bootstrap::kStreamPort}) {
    tree_.Memory().Store32(port, 0);
    tree_.NoteStore(port);
  }
}

}  // namespace Tarn
