#include "camera/device/device.h"

#include <random>
#include <utility>

#include "camera/base/engine_error.h"
#include "camera/device/network_identity.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

// Source: as many images as a minute of video at 15 images a second; more is surely a mistake.
constexpr std::int64_t kMaxResendBuffers = 1024;

[[noreturn]] void ThrowRefusal(SendResult result) {
  switch (result) {
    case SendResult::NotRunning:
    case SendResult::Closed:
      throw EngineError(Failure::kNoStream, "acquisition is not enabled");
    case SendResult::NoDestination:
      throw EngineError(Failure::kNoStream, "the client opened no stream channel");
    case SendResult::TooLarge:
      throw EngineError(
          Failure::kInvalidArgument,
          "the image has more packets than can be numbered, or packets are too small for its leader");
    case SendResult::NoPlace:
      throw EngineError(Failure::kBusy, "all places hold images that are still to be sent");
    default:
      throw EngineError(Failure::kInternal, "the image was not sent");
  }
}

}  // namespace

std::shared_ptr<Device> Device::Create(const std::optional<SensorFormat>& format, StreamDriver driver) {
  std::shared_ptr<Device> device(new Device(format, driver));
  device->tree_.SetOwner(device);
  return device;
}

Device::Device(const std::optional<SensorFormat>& format, StreamDriver driver)
    : format_(format),
      requested_driver_(driver),
      plane_(tree_, format, *clock_, effects_, std::random_device()()),
      last_driver_(driver) {
  AddStandardFeatures(tree_, format_);
  tree_.SetRefresh([this](std::uint64_t address, std::uint64_t length) {
    constexpr std::uint32_t kCountersEnd = ManufacturerRegister::kStreamState + 4;
    if (address < kCountersEnd && address + length > ManufacturerRegister::kStreamFrames) ShowCounters();
  });
  FillConstants(tree_.Memory(), format_.has_value());
  StoreText(tree_.Memory(), Bootstrap::kDeviceVersion, 32, kLibraryVersion);
  tree_.TakeStores();
}

Device::~Device() {
  // Programs may still hold nodes of the tree, and use them at this moment.
  const MutexLock building(BuildLock());
  const MutexLock own(mutex_.Get());
  tree_.Release();
}

void Device::CheckStopped(const char* what) const {
  if (state_ == State::Stopped) return;
  throw EngineError(Failure::kWrongState, std::string(what) + " only while the server is not started");
}

void Device::Start(std::uint32_t address) {
  if (Inherited()) throw EngineError(Failure::kWrongState, "the server belongs to the parent process");
  RequireHostAddress(address);
  TakeTree();
  try {
    const NetworkIdentity network = IdentifyNetwork(address);
    Publish(network);
    OpenSockets(network);
  } catch (...) {
    ReleaseTree();
    throw;
  }
}

/// The tree's lock is the device's own from now on: nobody else waits for what follows.
void Device::TakeTree() {
  const MutexLock building(BuildLock());
  CheckStopped("a server can be started");
  const MutexLock own(mutex_.Get());
  state_ = State::Starting;
  tree_.SetFrozen(true);
  tree_.SetGuard(&mutex_.Get());
}

void Device::Publish(const NetworkIdentity& network) {
  const NodeLock lock(tree_);
  Tarn::Publish(plane_.Functions(), network, format_.has_value(), resend_depth_ > 0, xml_version_);
}

/// Tries out and binds without any lock: it may take a while, and fail.
void Device::OpenSockets(const NetworkIdentity& network) {
  Channels channels;
  channels.control = std::make_shared<ControlThreads>(network.address, kControlPort);
  channels.messages = std::make_shared<MessageChannel>(network.address, clock_);
  if (format_) {
    StreamOptions options;
    options.local_address = network.address;
    options.driver = requested_driver_;
    options.resend_depth = resend_depth_;  // cannot change while starting
    options.observer = channels.messages;
    channels.stream = StreamChannel::Open(options);
  }
  channels.control->Start(shared_from_this(), channels.messages);
  Outbox outbox;
  {
    const NodeLock lock(tree_);
    channels_ = channels;
    if (channels.stream) last_driver_ = channels.stream->Driver();
    armed_ = Instant::max();
    plane_.Open({channels.stream ? channels.stream->SourcePort() : std::uint16_t{0},
                 channels.messages->SourcePort()});
    events_.Open();
    state_ = State::Started;
    ApplyEffects(outbox);
  }
  Dispatch(outbox);
}

Device::Channels Device::TakeDown(Outbox& outbox) {
  ShowCounters();  // for the last time in this run
  plane_.Close(Now());
  ApplyEffects(outbox);
  if (channels_.stream) last_driver_ = channels_.stream->Driver();
  state_ = State::Stopping;
  return std::exchange(channels_, {});
}

void Device::ReleaseTree() {
  const MutexLock building(BuildLock());
  const MutexLock own(mutex_.Get());
  state_ = State::Stopped;
  tree_.TakeStores();
  tree_.SetFrozen(false);
  tree_.SetGuard(nullptr);
}

void Device::Stop() {
  if (Inherited()) return;
  Outbox outbox;
  Channels channels;
  {
    const NodeLock lock(tree_);
    if (state_ != State::Started) return;  // stopped, or somebody else is at it
    channels = TakeDown(outbox);
  }
  Dispatch(outbox);
  if (channels.stream) channels.stream->Close();
  channels.control->Stop();
  events_.Close();
  ReleaseTree();
}

void Device::Abandon() noexcept {
  events_.Close();
  Outbox outbox;
  Channels channels;
  const NodeLock lock(tree_);
  if (state_ == State::Started) channels = TakeDown(outbox);
}

template <class Give>
void Device::Input(Outbox& outbox, Give&& give) {
  {
    const NodeLock lock(tree_);
    give();
    ApplyEffects(outbox);
  }
  Dispatch(outbox);
}

void Device::ApplyEffects(Outbox& outbox) {
  for (const ChannelOrder& order : effects_.channels) Apply(order, outbox);
  for (const ServerEvent event : effects_.server_events) events_.Post(event);
  outbox.server_events = !effects_.server_events.empty();
  if (!effects_.datagrams.empty()) {
    std::swap(outbox.datagrams, effects_.datagrams);
    outbox.port = channels_.control;
  }
  if (effects_.test_packet) outbox.tested_stream = channels_.stream;
  effects_.Clear();
  if (state_ != State::Started) return;
  if (plane_.Deadline() < armed_) channels_.control->WakeReceiving();
  if (plane_.HasCalls()) channels_.control->WakeCalling();
}

// Each queues and returns.
void Device::Apply(const ChannelOrder& order, Outbox& outbox) {
  if (const auto* frames = std::get_if<FrameNotification>(&order)) {
    if (channels_.messages) channels_.messages->NotifyFrames(frames->starts, frames->ends);
  } else if (const auto* channel = std::get_if<EventChannelConfig>(&order)) {
    if (channels_.messages) channels_.messages->Configure(*channel);
  } else if (const auto* event = std::get_if<EventReport>(&order)) {
    if (channels_.messages) channels_.messages->Queue(event->item, event->data);
    outbox.messages = channels_.messages;
  } else if (!channels_.stream) {
    return;
  } else if (const auto* config = std::get_if<StreamConfig>(&order)) {
    channels_.stream->Configure(*config);
    if (!channels_.stream->SetSchedule(config->schedule)) {
      // The program sees what holds.
      tree_.Memory().Store32(ManufacturerRegister::kStreamThreadPriority, 0);
      tree_.Memory().Store64(ManufacturerRegister::kStreamThreadProcessors, 0);
    }
  } else if (std::get_if<StreamOpened>(&order)) {
    channels_.stream->ChannelOpened();
  } else if (std::get_if<StreamBegins>(&order)) {
    channels_.stream->BeginRunning(plane_.Functions().Stream().PayloadSize());
  } else if (const auto* ends = std::get_if<StreamEnds>(&order)) {
    if (ends->send_accepted) {
      channels_.stream->EndRunning();
    } else {
      channels_.stream->StopRunning();
    }
  } else if (const auto* request = std::get_if<ResendRequest>(&order)) {
    channels_.stream->Resend(*request);
  }
}

/// Before anybody is answered those have heard who watch the server's state.
void Device::Dispatch(Outbox& outbox) noexcept {
  if (std::exchange(outbox.server_events, false)) events_.Notify();
  if (const auto messages = std::exchange(outbox.messages, nullptr)) messages->SendDue();
  for (const ControlDatagram& datagram : outbox.datagrams) outbox.port->Send(datagram);
  outbox.datagrams.clear();
  outbox.port = nullptr;
  if (const auto stream = std::exchange(outbox.tested_stream, nullptr)) stream->FireTestPacket();
}

Instant Device::Arm() {
  const NodeLock lock(tree_);
  return armed_ = state_ == State::Started ? plane_.Deadline() : Instant::max();
}

Instant Device::Receive(const ControlRequest& request, Outbox& outbox) {
  Instant deadline = Instant::max();
  Input(outbox, [&] {
    if (state_ != State::Started) return;
    plane_.Receive(request);
    deadline = armed_ = plane_.Deadline();
  });
  return deadline;
}

Instant Device::Advance(Instant now, Outbox& outbox) {
  Instant deadline = Instant::max();
  Input(outbox, [&] {
    if (state_ != State::Started) return;
    plane_.Advance(now);
    deadline = armed_ = plane_.Deadline();
  });
  return deadline;
}

void Device::LinksChanged(Outbox& outbox) {
  const Endpoint local = Local();
  if (local.address == 0) return;
  NetworkIdentity network;
  try {
    network = IdentifyNetwork(local.address);
  } catch (const std::system_error&) {
    return;  // the next change is heard of, too
  }
  Input(outbox, [&] {
    if (state_ != State::Started) return;
    FillLinkSpeed(tree_.Memory(), network.link_speed);
    plane_.Functions().Stream().OnChannelWritten(plane_.Privilege().Primary().address);
    if (channels_.stream) channels_.stream->RouteChanged();
  });
}

Listeners Device::NextCalls(Outbox& outbox) {
  Listeners listeners;
  Input(outbox, [&] {
    if (state_ == State::Started) listeners = plane_.NextCalls(Now());
  });
  return listeners;
}

void Device::OnStored() {
  if (Inherited()) return;
  Outbox outbox;
  Input(outbox, [&] { plane_.OnStored(Now()); });
}

void Device::Send(const ImageMemory& image, BlockOwner owner) {
  std::shared_ptr<StreamChannel> stream;
  std::size_t payload_size = 0;
  std::optional<std::uint64_t> limited;
  ImageBlock block;
  {
    const NodeLock lock(tree_);
    if (!format_) throw EngineError(Failure::kNoStream, "the server has no stream");
    if (Inherited()) throw EngineError(Failure::kNoStream, "the server belongs to the parent process");
    if (!AcquisitionActive() || !channels_.stream) ThrowRefusal(SendResult::NotRunning);
    stream = channels_.stream;
    DeviceFunctions& functions = plane_.Functions();
    payload_size = functions.Stream().PayloadSize();
    limited = functions.TheAcquisition().Limited();
    functions.Stream().DescribeBlock(block, SampleBytesOf(image), Now());
  }
  LayOut(image, block, [&stream](std::size_t bytes) { return stream->Buffer(bytes); });
  if (block.payload.Size() > payload_size) {
    throw EngineError(Failure::kInvalidArgument, "the image has " + std::to_string(block.payload.Size()) +
                                                     " bytes, the payload size is " +
                                                     std::to_string(payload_size));
  }
  block.owner = std::move(owner);
  const SendResult result = stream->Send(std::move(block));
  if (result != SendResult::Accepted) ThrowRefusal(result);
  if (!limited) return;
  Outbox outbox;
  Input(outbox, [&] { plane_.CountFrame(*limited, Now()); });
}

bool Device::HasImagePlace() const {
  const NodeLock lock(tree_);
  return !channels_.stream || channels_.stream->HasPlace();
}

void Device::ShowCounters() {
  SparseMemory& memory = tree_.Memory();
  plane_.Counters().Store(memory);
  if (channels_.messages) {
    const EventCounters events = channels_.messages->Counters();
    memory.Store64(ManufacturerRegister::kEventsSent, events.sent);
    memory.Store64(ManufacturerRegister::kEventsRepeated, events.repeated);
    memory.Store64(ManufacturerRegister::kEventsLost, events.lost);
    memory.Store64(ManufacturerRegister::kEventsDropped, events.dropped);
  }
  if (!channels_.stream) return;  // what the last run counted stays
  const StreamCounters counters = channels_.stream->Counters();
  memory.Store64(ManufacturerRegister::kStreamFrames, counters.frames);
  memory.Store64(ManufacturerRegister::kStreamDroppedFrames, counters.dropped_blocks);
  memory.Store64(ManufacturerRegister::kStreamPackets, counters.packets);
  memory.Store64(ManufacturerRegister::kStreamBytes, counters.bytes);
  memory.Store64(ManufacturerRegister::kStreamResentPackets, counters.resent_packets);
  memory.Store64(ManufacturerRegister::kStreamFailedPackets, counters.failed_sends);
  memory.Store64(ManufacturerRegister::kStreamUnreachable, counters.unreachable);
  memory.Store64(ManufacturerRegister::kStreamRefusedImages, counters.refused_images);
  memory.Store64(ManufacturerRegister::kStreamDroppedRequests, counters.dropped_requests);
  memory.Store64(ManufacturerRegister::kStreamQueueFull, counters.queue_full);
  memory.Store64(ManufacturerRegister::kStreamRate, channels_.stream->Rate());
  memory.Store32(ManufacturerRegister::kStreamState, static_cast<std::uint32_t>(channels_.stream->State()));
}

Endpoint Device::Local() const {
  const NodeLock lock(tree_);
  return state_ == State::Started && !Inherited() ? channels_.control->Local() : Endpoint{};
}

Endpoint Device::Remote() const {
  const NodeLock lock(tree_);
  return state_ == State::Started && !Inherited() ? plane_.Privilege().Primary() : Endpoint{};
}

StreamDriver Device::Driver() const {
  const NodeLock lock(tree_);
  return channels_.stream ? channels_.stream->Driver() : last_driver_;
}

std::size_t Device::ResendDepth() const {
  const NodeLock lock(tree_);
  return resend_depth_;
}

void Device::SetResendDepth(std::int64_t depth) {
  const NodeLock lock(tree_);
  CheckStopped("the number of resend buffers can change");
  if (!format_) throw EngineError(Failure::kNoStream, "a server without a stream has no resend buffers");
  if (depth < 0 || depth > kMaxResendBuffers) {
    throw EngineError(Failure::kOutOfRange, "the number of resend buffers must lie between 0 and " +
                                                std::to_string(kMaxResendBuffers));
  }
  resend_depth_ = static_cast<std::size_t>(depth);
}

std::string Device::UserVersion() const {
  const NodeLock lock(tree_);
  return user_version_;
}

void Device::SetUserVersion(const std::string& version) {
  constexpr std::size_t kMax = 31;  // the register has 32 bytes and ends with a zero
  const NodeLock lock(tree_);
  user_version_ = Cropped(version, kMax);
  const std::string whole = user_version_.empty() ? kLibraryVersion : kLibraryVersion + (" " + user_version_);
  StoreText(tree_.Memory(), Bootstrap::kDeviceVersion, 32, whole);
}

std::uint32_t Device::XmlVersion(int part) const {
  const NodeLock lock(tree_);
  return xml_version_[static_cast<std::size_t>(part)];
}

void Device::SetXmlVersion(int part, std::int64_t value) {
  const NodeLock lock(tree_);
  CheckStopped("the version of the description can change");
  if (value < 0 || value > INT32_MAX) {
    throw EngineError(Failure::kOutOfRange,
                      "a part of a version must lie between 0 and " + std::to_string(INT32_MAX));
  }
  xml_version_[static_cast<std::size_t>(part)] = static_cast<std::uint32_t>(value);
}

}  // namespace Tarn
