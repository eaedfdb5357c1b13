// The device's side of the control protocol: which listeners hear of a command, and what follows from it.

#include <algorithm>

#include "camera/base/engine_error.h"
#include "camera/device/device.h"
#include "camera/engine/features/event_features.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/own_registers.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

using Listeners = std::vector<std::shared_ptr<const NodeListener>>;

// More actions than this are counted, but their listeners are called no more often: they read the count.
constexpr std::size_t kMostUnheard = 64;

// Milliseconds. The program can store any number behind the feature: 0 would have notices sent without a
// break, and twice as much as the most would not fit into the notice.
constexpr std::uint32_t kLeastPatience = 10;
constexpr std::uint32_t kMostPatience = 0x7FFF;

}  // namespace

/// Carries out one command: lets go of the tree lock while others are called.
class Device::Actions final : public ControlActions {
 public:
  Actions(Device& device, MutexLock& lock, Endpoint client) : device_(device), lock_(lock), client_(client) {}

  void BeforeRead(std::uint32_t address, std::uint32_t length) override {
    Tell(device_.registers_.Listeners(address, length, NodeEvent::Read));
  }

  void AfterWrite(std::uint32_t address, std::uint32_t length) override {
    const bool saves = address == OwnRegisters::kUserSetSave && device_.tree_.Memory().Load32(address) != 0;
    device_.FollowStores();
    if (saves) SaveWhatClientsRead();
    const std::vector<PlacedRegister> loaded = std::exchange(device_.loaded_, {});
    TellWritten(address, length);
    for (const PlacedRegister& reg : loaded) {
      TellWritten(static_cast<std::uint32_t>(reg.address), reg.node->reg->length);
    }
    device_.FollowStores();
  }

  bool Streaming() const override { return device_.acquiring_; }

  void Resend(const ResendCommand& command, Endpoint requester) override {
    if (!device_.stream_) return;
    // Queues and returns; takes no lock that could be held across a call out.
    device_.stream_->Resend(
        {requester, command.block_id, command.first_packet, command.last_packet, command.extended});
  }

  Instant AtTicks(std::uint64_t ticks) const override { return device_.clock_->At(ticks); }
  void Fire(SignalSet signals) override { device_.FireSignals(signals); }
  void Report(std::uint16_t number) override { device_.TellEvent(number); }

 private:
  void TellWritten(std::uint32_t address, std::uint32_t length) {
    Tell(device_.registers_.Listeners(address, length, NodeEvent::Write));
    // A client that waits for the end of a command reads its register until the number is gone.
    device_.registers_.FinishCommands(address, length);
  }

  /// Saves once more, after all whose values are brought up to date by read listeners were.
  void SaveWhatClientsRead() {
    for (const PlacedRegister& reg : device_.registers_.Streamable()) {
      BeforeRead(static_cast<std::uint32_t>(reg.address), reg.node->reg->length);
    }
    device_.SaveUserSet();
  }

  // The lock is the caller's, held again on return; the analysis does not follow it through the reference.
  void Tell(const Listeners& listeners) TARN_NO_THREAD_SAFETY_ANALYSIS {
    if (listeners.empty()) return;
    lock_.unlock();
    device_.actions_.Drain();
    for (const auto& listener : listeners) listener->call(listener->context);
    lock_.lock();
    // Its silence was ours as long as the listeners ran.
    if (device_.channel_.Privilege().IsHolder(client_)) device_.channel_.KeepAlive(Now());
  }

  Device& device_;
  MutexLock& lock_;
  const Endpoint client_;
};

Reception Device::Arrived(const ControlRequest& request) {
  const MutexLock lock(TreeLock());
  return channel_.Arrived(request);
}

std::size_t Device::Execute(const ControlRequest& request, MutableByteView answer) {
  MutexLock lock(TreeLock());
  if (!server_) return 0;  // stopped in the meantime
  Actions actions(*this, lock, request.source);
  const std::size_t size = channel_.Handle(request, actions, answer);
  CountAnswer(answer.first(size));
  FollowStores();
  lock.unlock();
  actions_.Drain();
  return size;
}

void Device::Answered() {
  std::shared_ptr<StreamChannel> stream;
  {
    const MutexLock lock(TreeLock());
    if (std::exchange(test_packet_wanted_, false)) stream = stream_;
  }
  if (stream) stream->FireTestPacket();
}

Instant Device::Deadline() {
  const MutexLock lock(TreeLock());
  return std::min(channel_.HeartbeatDeadline(), channel_.NextAction());
}

bool Device::Tick(Instant now, const std::vector<Endpoint>& waiting) {
  MutexLock lock(TreeLock());
  if (!server_) return false;  // stopped in the meantime
  const bool silent = now >= channel_.HeartbeatDeadline();
  const bool due = now >= channel_.NextAction();
  if (due) {
    Actions actions(*this, lock, {});
    channel_.FireDue(now, actions);
  }
  if (silent) FallSilent(now, waiting);
  if (silent || due) FollowStores();
  const bool unheard = !fired_.empty();
  lock.unlock();
  if (silent || due) actions_.Drain();
  return unheard;
}

void Device::FallSilent(Instant now, const std::vector<Endpoint>& waiting) {
  const bool ours =
      std::ranges::any_of(waiting, [&](Endpoint client) { return channel_.Privilege().IsHolder(client); });
  if (ours) return channel_.KeepAlive(now);
  channel_.Expire(now);
  ++heartbeat_timeouts_;
}

void Device::FireSignals(SignalSet signals) {
  for (std::uint32_t signal = 0; signal < kActionSignals; ++signal) {
    if (!signals[signal]) continue;
    const std::uint32_t reg = OwnRegisters::kActionCounts + 4 * signal;
    tree_.Memory().Store32(reg, tree_.Memory().Load32(reg) + 1);
    tree_.NoteStore(reg);
    if (fired_.size() < kMostUnheard && registers_.HasListeners(reg, 4, NodeEvent::Write))
      fired_.push_back(reg);
  }
}

void Device::Call() {
  MutexLock lock(TreeLock());
  Actions actions(*this, lock, {});
  while (server_ && !fired_.empty()) {
    const std::uint32_t reg = fired_.front();
    fired_.pop_front();
    actions.AfterWrite(reg, 4);
  }
}

std::optional<std::chrono::milliseconds> Device::PendingAfter() {
  const MutexLock lock(TreeLock());
  const SparseMemory& memory = tree_.Memory();
  if (ControlConfiguration::PendingAck::Get(memory.Load32(Bootstrap::kControlConfiguration)) == 0)
    return std::nullopt;
  return std::chrono::milliseconds(
      std::clamp(memory.Load32(Bootstrap::kPendingTimeout), kLeastPatience, kMostPatience));
}

void Device::Settle() {
  if (Inherited()) return;
  {
    const MutexLock lock(TreeLock());
    FollowStores();
    loaded_.clear();  // listeners hear of clients only
  }
  actions_.Drain();
}

void Device::FollowStores() {
  for (const std::uint64_t address : tree_.TakeStores()) FollowStore(address);
  for (const FeatureTree::WatchedStore& store : tree_.TakeWatchedStores()) FollowEventStore(store);
}

void Device::FollowStore(std::uint64_t address) {
  SparseMemory& memory = tree_.Memory();
  const auto taken = [&](std::uint32_t reg) {
    const bool executed = memory.Load32(reg) != 0;
    memory.Store32(reg, 0);  // commands clear themselves
    return executed && server_ != nullptr;
  };
  switch (address) {
    case Bootstrap::kTimestampControl:
      return FollowTimestampControl();
    case Bootstrap::kControlPrivilege:
      return FollowPrivilege();
    case Bootstrap::kStreamPacketSize: {
      const std::uint32_t value = memory.Load32(Bootstrap::kStreamPacketSize);
      test_packet_wanted_ = test_packet_wanted_ || StreamPacketSize::FireTest::Get(value) != 0;
      memory.Store32(Bootstrap::kStreamPacketSize, StreamPacketSize::FireTest::With(value, 0));
      return PostStreamConfig();
    }
    case Bootstrap::kStreamPort:
      return FollowStreamPort();
    case Bootstrap::kMessagePort:
    case Bootstrap::kMessageDestination:
    case Bootstrap::kMessageTimeout:
    case Bootstrap::kMessageRetries:
      return FollowMessageChannel();
    case Bootstrap::kStreamConfiguration:
      FollowMessageChannel();
      return PostStreamConfig();
    case Bootstrap::kStreamPacketDelay:
    case Bootstrap::kStreamDestination:
    case Bootstrap::kStreamChannelConfiguration:
    case Bootstrap::kControlConfiguration:
    case OwnRegisters::kThroughputLimitMode:
    case OwnRegisters::kThroughputLimit:
      return PostStreamConfig();
    case OwnRegisters::kWidth:
    case OwnRegisters::kHeight:
    case OwnRegisters::kChunkModeActive:
      return UpdatePayloadSize();
    case OwnRegisters::kPayloadSize:
      given_payload_size_ = memory.Load32(OwnRegisters::kPayloadSize);
      return UpdatePayloadSize();
    case OwnRegisters::kAcquisitionStart:
      if (taken(OwnRegisters::kAcquisitionStart)) StartAcquisition();
      return;
    case OwnRegisters::kAcquisitionStop:
      if (taken(OwnRegisters::kAcquisitionStop)) StopAcquisition();
      return;
    case OwnRegisters::kUserSetLoad:
      if (taken(OwnRegisters::kUserSetLoad)) LoadUserSet();
      return;
    case OwnRegisters::kUserSetSave:
      if (taken(OwnRegisters::kUserSetSave)) SaveUserSet();
      return;
    default:
      if (OwnRegisters::IsChunkEnable(address)) UpdatePayloadSize();
      if (IsNotificationRegister(address)) FollowNotification();
      return;
  }
}

void Device::FollowStreamPort() {
  const bool open = StreamPort::HostPort::Get(tree_.Memory().Load32(Bootstrap::kStreamPort)) != 0;
  if (!open) StopAcquisition();
  tree_.Memory().Store32(Bootstrap::kStreamSourcePort, open && stream_ ? stream_->SourcePort() : 0);
  PostStreamConfig();
  if (open && stream_) actions_.Post([stream = stream_] { stream->ChannelOpened(); });
}

void Device::FollowTimestampControl() {
  SparseMemory& memory = tree_.Memory();
  const std::uint32_t value = memory.Load32(Bootstrap::kTimestampControl);
  memory.Store32(Bootstrap::kTimestampControl, 0);
  if (TimestampControl::Latch::Get(value) != 0) {
    const std::uint64_t ticks = clock_->Ticks();
    memory.Store32(Bootstrap::kTimestampHigh, static_cast<std::uint32_t>(ticks >> 32));
    memory.Store32(Bootstrap::kTimestampLow, static_cast<std::uint32_t>(ticks));
  }
  if (TimestampControl::Reset::Get(value) != 0) clock_->Reset();
}

void Device::FollowPrivilege() {
  const bool held = channel_.Privilege().Held();
  if (held == controlled_) return PostStreamConfig();  // resends follow control that went from hand to hand
  if (!held) StopAcquisition();
  controlled_ = held;
  Post(held ? ServerEvent::Connected : ServerEvent::Disconnected);
}

void Device::Post(ServerEvent event) {
  actions_.Post([self = weak_from_this(), event] {
    if (const auto device = self.lock()) device->events_.Tell(event);
  });
}

}  // namespace Tarn
