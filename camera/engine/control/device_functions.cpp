#include "camera/engine/control/device_functions.h"

#include "camera/engine/features/event_features.h"
#include "camera/engine/registers/register_table.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

// Further actions are counted, but their listeners are called no more often: they read the count.
constexpr std::size_t kMaxFired = 64;

/// Nothing when the program put the number of no set into the selector's register, which clients cannot.
std::optional<UserSet> SelectedSet(const SparseMemory& memory) {
  const std::uint32_t number = memory.Load32(ManufacturerRegister::kUserSetSelector);
  return number < kUserSetCount ? std::optional(static_cast<UserSet>(number)) : std::nullopt;
}

}  // namespace

DeviceFunctions::DeviceFunctions(FeatureTree& tree, const std::optional<SensorFormat>& format,
                                 DeviceClock& clock, DeviceCounters& counters, Effects& effects,
                                 std::uint64_t secret)
    : tree_(tree),
      clock_(clock),
      counters_(counters),
      effects_(effects),
      registers_(tree),
      session_(tree, counters, secret),
      events_(tree, clock, effects),
      acquisition_(tree, events_, effects),
      stream_(tree, format, clock, effects),
      user_sets_(tree, registers_) {}

void DeviceFunctions::Open(const Ports& ports) {
  tree_.TakeStores();
  events_.Open(ports.messages);
  stream_.Open(ports.stream);
  open_ = true;
}

void DeviceFunctions::Close(Instant now) {
  EndControl();
  ApplyStores(now);
  open_ = false;
  events_.Close();
  stream_.Close();
  schedule_.Clear();
  fired_.clear();
}

WireStatus DeviceFunctions::Write(Endpoint who, std::uint32_t address, ByteView bytes) {
  if (!session_.Privilege().IsPrimary(who)) return WireStatus::AccessDenied;
  const WireStatus status = registers_.Write(address, bytes, {who, acquisition_.Active()});
  if (status == WireStatus::Success && address == Bootstrap::kControlConfiguration)
    session_.OnClientConfigured();
  return status;
}

WireStatus DeviceFunctions::WritePrivilege(Endpoint who, std::uint32_t value, Instant now) {
  const Endpoint before = session_.Privilege().Primary();
  const WireStatus status = session_.Write(who, value, now);
  const Endpoint after = session_.Privilege().Primary();
  if (before != Endpoint{} && after != Endpoint{} && before != after) {
    events_.Report(EventNumber::kPrimaryApplicationSwitch, now);
  }
  return status;
}

void DeviceFunctions::EndControl() {
  if (session_.Privilege().Held()) session_.End();
}

std::vector<PlacedRegister> DeviceFunctions::ApplyStores(Instant now) {
  std::vector<PlacedRegister> loaded;
  while (tree_.HasStores()) {
    for (const std::uint64_t address : tree_.TakeStores()) OnStored(address, now, loaded);
    for (const FeatureTree::WatchedStore& store : tree_.TakeWatchedStores()) {
      events_.OnSourceWritten(store, now);
    }
  }
  return loaded;
}

void DeviceFunctions::OnStored(std::uint64_t address, Instant now, std::vector<PlacedRegister>& loaded) {
  const DeviceRegister* reg = FindDeviceRegister(address);
  const std::uint32_t primary = session_.Privilege().Primary().address;
  switch (reg ? reg->effect : RegisterEffect::None) {
    case RegisterEffect::None:
      return;
    case RegisterEffect::StreamChannel:
      return stream_.OnChannelWritten(primary);
    case RegisterEffect::StreamPort:
      if (!stream_.PortIsOpen()) acquisition_.Stop(false, now);
      return stream_.OnPortWritten(primary);
    case RegisterEffect::PacketSize:
      return stream_.OnPacketSizeWritten(primary);
    case RegisterEffect::MessageChannel:
      return events_.OnChannelWritten();
    case RegisterEffect::BothChannels:
      events_.OnChannelWritten();
      return stream_.OnChannelWritten(primary);
    case RegisterEffect::Privilege:
      return OnPrivilegeStored(now);
    case RegisterEffect::Timestamp:
      return OnTimestampControl(now);
    case RegisterEffect::Payload:
      return stream_.OnPayloadWritten();
    case RegisterEffect::PixelFormat:
      return stream_.OnPixelFormatWritten();
    case RegisterEffect::PayloadSize:
      return stream_.OnPayloadSizeWritten();
    case RegisterEffect::AcquisitionStart:
      if (TakeCommand(reg->address) && stream_.IsOpen() && session_.Privilege().Held())
        acquisition_.Start(now);
      return;
    case RegisterEffect::AcquisitionStop:
      if (TakeCommand(reg->address)) acquisition_.Stop(false, now);
      return;
    case RegisterEffect::UserSetLoad:
      if (TakeCommand(reg->address)) LoadUserSet(loaded);
      return;
    case RegisterEffect::UserSetSave:
      if (TakeCommand(reg->address)) SaveUserSet();
      return;
    case RegisterEffect::EventNotification:
      return events_.OnNotificationWritten();
  }
}

/// Commands clear themselves.
/// \return whether it was executed, and the device is started
bool DeviceFunctions::TakeCommand(std::uint32_t address) {
  const bool executed = tree_.Memory().Load32(address) != 0;
  tree_.Memory().Store32(address, 0);
  return executed && open_;
}

/// Control changed hands, or the program stored into the register: 0 ends a client's control, anything else
/// has no effect.
void DeviceFunctions::OnPrivilegeStored(Instant now) {
  SparseMemory& memory = tree_.Memory();
  if (memory.Load32(Bootstrap::kControlPrivilege) == 0) EndControl();
  memory.Store32(Bootstrap::kControlPrivilege, session_.Privilege().Register());
  const Endpoint before = std::exchange(primary_, session_.Privilege().Primary());
  if (before == primary_) return;
  stream_.OnChannelWritten(primary_.address);  // whose requests for packets are served
  if (before != Endpoint{} && primary_ != Endpoint{}) return;
  if (primary_ == Endpoint{}) {
    acquisition_.Stop(false, now);
    schedule_.Forget(before.address);
  }
  effects_.server_events.push_back(primary_ == Endpoint{} ? ServerEvent::Disconnected
                                                          : ServerEvent::Connected);
}

void DeviceFunctions::OnTimestampControl(Instant now) {
  SparseMemory& memory = tree_.Memory();
  const std::uint32_t value = memory.Load32(Bootstrap::kTimestampControl);
  memory.Store32(Bootstrap::kTimestampControl, 0);
  if (TimestampControl::Latch::Get(value) != 0) {
    const std::uint64_t ticks = clock_.TicksAt(now);
    memory.Store32(Bootstrap::kTimestampHigh, static_cast<std::uint32_t>(ticks >> 32));
    memory.Store32(Bootstrap::kTimestampLow, static_cast<std::uint32_t>(ticks));
  }
  if (TimestampControl::Reset::Get(value) != 0) clock_.Reset(now);
}

/// Clients are refused before where it is not possible; the program's own command comes here.
void DeviceFunctions::LoadUserSet(std::vector<PlacedRegister>& loaded) {
  const std::optional<UserSet> set = SelectedSet(tree_.Memory());
  if (!set || acquisition_.Active()) return;
  loaded = user_sets_.Load(*set, {session_.Privilege().Primary(), false});
}

void DeviceFunctions::SaveUserSet() {
  const std::optional<UserSet> set = SelectedSet(tree_.Memory());
  if (set && *set != UserSet::Default) user_sets_.Save(*set);  // as above
}

bool DeviceFunctions::TakesActions() const {
  const std::uint32_t configuration = tree_.Memory().Load32(Bootstrap::kControlConfiguration);
  return session_.Privilege().Held() || ControlConfiguration::UnconditionalAction::Get(configuration) != 0;
}

std::optional<WireStatus> DeviceFunctions::Act(const ActionCommand& action, Endpoint source, Instant now) {
  const SignalSet signals = TakesActions() ? MatchingSignals(action, tree_.Memory()) : SignalSet();
  if (signals.none()) return std::nullopt;
  WireStatus status = WireStatus::Success;
  if (!action.time) {
    Fire(signals);
  } else if (const Instant due = clock_.At(*action.time); due <= now) {
    status = WireStatus::ActionLate;
    Fire(signals);
    events_.Report(EventNumber::kActionLate, now);
  } else if (!schedule_.Add(signals, due, source.address, now)) {
    status = WireStatus::Overflow;
  }
  // Clients that do not know the newer codes are told that something is wrong, but not what.
  const std::uint32_t configuration = tree_.Memory().Load32(Bootstrap::kControlConfiguration);
  const bool extended = ControlConfiguration::ExtendedStatus2::Get(configuration) != 0;
  return extended || status == WireStatus::Success ? status : WireStatus::Error;
}

void DeviceFunctions::FireDue(Instant now) {
  for (SignalSet due = schedule_.TakeDue(now); due.any(); due = schedule_.TakeDue(now)) {
    if (TakesActions()) Fire(due);
  }
}

void DeviceFunctions::Fire(SignalSet signals) {
  for (std::uint32_t signal = 0; signal < kActionSignals; ++signal) {
    if (!signals[signal]) continue;
    const std::uint32_t reg = ManufacturerRegister::kActionCounts + 4 * signal;
    tree_.Memory().Store32(reg, tree_.Memory().Load32(reg) + 1);
    if (!registers_.HasListeners(reg, 4, NodeEvent::Write)) continue;
    if (fired_.size() < kMaxFired) {
      fired_.push_back(reg);
    } else {
      ++counters_.dropped_notifications;
    }
  }
}

std::optional<std::uint32_t> DeviceFunctions::TakeFired() {
  if (fired_.empty()) return std::nullopt;
  const std::uint32_t reg = fired_.front();
  fired_.pop_front();
  return reg;
}

void DeviceFunctions::Resend(const ResendCommand& command, Endpoint requester) {
  if (!stream_.IsOpen()) return;
  effects_.channels.emplace_back(ResendRequest{requester, command.block_id, command.first_packet,
                                               command.last_packet, command.extended});
}

}  // namespace Tarn
