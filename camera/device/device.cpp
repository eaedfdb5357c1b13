#include "camera/device/device.h"

#include <cstdio>
#include <utility>

#include "camera/base/engine_error.h"
#include "camera/device/identity.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/own_registers.h"
#include "camera/wire/bootstrap.h"

namespace Tarn {
namespace {

// Source: as many images as a minute of video at 15 images a second; more is surely a mistake.
constexpr std::int64_t kMostResendBuffers = 1024;

std::string TextOf(FeatureTree& tree, const char* name) {
  const NodePtr node = tree.Find(name);
  return node ? ReadText(*node) : std::string();
}

}  // namespace

std::shared_ptr<Device> Device::Create(const std::optional<SensorFormat>& format, StreamDriver driver) {
  std::shared_ptr<Device> device(new Device(format, driver));
  const MutexLock lock(TreeLock());
  device->tree_.SetOwner(device);
  return device;
}

Device::Device(const std::optional<SensorFormat>& format, StreamDriver driver)
    : format_(format), requested_driver_(driver), last_driver_(driver) {
  const MutexLock lock(TreeLock());
  AddStandardFeatures(tree_, format_);
  tree_.SetRefresh([this](std::uint64_t address, std::uint64_t length) {
    if (address < OwnRegisters::kCountersEnd && address + length > OwnRegisters::kCounters) ShowCounters();
  });
  FillConstants(tree_.Memory(), format_.has_value());
  StoreText(tree_.Memory(), Bootstrap::kDeviceVersion, 32, kLibraryVersion);
  tree_.TakeStores();
}

Device::~Device() {
  // Programs may still hold nodes of the tree, and use them at this moment.
  const MutexLock lock(TreeLock());
  tree_.Release();
}

void Device::CheckStopped(const char* what) const {
  if (!server_ && !stopping_) return;
  throw EngineError(Failure::kWrongState, std::string(what) + " only while the server is not started");
}

void Device::Start(std::uint32_t address) {
  if (Inherited()) throw EngineError(Failure::kWrongState, "the server belongs to the parent process");
  RequireHostAddress(address);
  MutexLock lock(TreeLock());
  CheckStopped("a server can be started");
  const NetworkIdentity network = IdentifyNetwork(address);
  heartbeat_timeouts_ = 0;
  refused_commands_ = 0;
  Publish(network);
  try {
    auto server = std::make_unique<ControlServer>(address, kControlPort);
    OpenMessages(address);
    if (format_) OpenStream(network);
    server->Start(shared_from_this(), messages_);
    events_.Open();
    server_ = std::move(server);
  } catch (...) {
    const std::shared_ptr<StreamChannel> stream = std::exchange(stream_, nullptr);
    Thaw();
    lock.unlock();  // the stream's end may call out
    throw;
  }
}

void Device::OpenStream(const NetworkIdentity& network) {
  StreamOptions options;
  options.local_address = network.address;
  options.driver = requested_driver_;
  options.interface_mtu = network.max_packet_size;
  options.hardware_interface = network.hardware;
  options.resend_depth = resend_depth_;
  options.observer = messages_;
  stream_ = std::make_shared<StreamChannel>(options);
  stream_->Configure(ReadStreamConfig());
  last_driver_ = stream_->Driver();
}

void Device::Publish(const NetworkIdentity& network) {
  FillNetwork(tree_.Memory(), network, format_.has_value(), resend_depth_ > 0);
  const BootstrapProfile profile{format_.has_value(), network.max_packet_size, resend_depth_ > 0};
  SetLimit("GevSCPSPacketSize", UsablePacketSize(network.max_packet_size, profile));
  SetLimit("DeviceStreamChannelPacketSize", UsablePacketSize(network.max_packet_size, profile));
  DefineUserEvents(tree_);
  InvalidateByUserSets(tree_);
  chunks_.Collect(tree_);
  UpdatePayloadSize();
  CheckPublishable(tree_);
  const DescriptionIdentity identity{TextOf(tree_, "DeviceVendorName"), TextOf(tree_, "DeviceModelName"),
                                     xml_version_[0], xml_version_[1], xml_version_[2]};
  const Description description = WriteDescription(tree_, identity);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(description.xml.data());
  tree_.Memory().Write(kDescriptionFile, ByteView(bytes, description.xml.size()));
  char url[512];
  // Eight digits, so that no client takes them for decimal.
  std::snprintf(url, sizeof url, "Local:%s;%08llX;%08zX", description.file_name.c_str(),
                static_cast<unsigned long long>(kDescriptionFile), description.xml.size());
  StoreText(tree_.Memory(), Bootstrap::kFirstUrl, Bootstrap::kUrlLength, url);
  registers_.Index(profile, description.xml.size());
  user_sets_.Complete();
  WatchEventSources();
  tree_.SetFrozen(true);
  tree_.TakeStores();
}

void Device::SetLimit(const char* feature, std::int64_t max) {
  if (const NodePtr node = tree_.Find(feature)) node->max = max;
}

std::shared_ptr<StreamChannel> Device::TakeDown(std::unique_ptr<ControlServer>& server) {
  ShowCounters();  // for the last time in this run
  acquiring_ = false;
  server = std::move(server_);
  if (stream_) last_driver_ = stream_->Driver();
  return std::exchange(stream_, nullptr);
}

void Device::Thaw() {
  channel_.Reset();
  fired_.clear();
  LockParameters(false);
  ForgetEventSources();
  messages_ = nullptr;
  controlled_ = false;
  tree_.TakeStores();
  tree_.SetFrozen(false);
}

void Device::Stop() {
  if (Inherited()) return;
  std::unique_ptr<ControlServer> server;
  std::shared_ptr<StreamChannel> stream;
  const bool was_acquiring = acquiring_;
  bool was_controlled = false;
  {
    const MutexLock lock(TreeLock());
    was_controlled = controlled_;
    stream = TakeDown(server);
    if (!server) return;  // stopped, or being stopped by somebody else
    stopping_ = true;
  }
  actions_.Clear();
  if (stream) stream->Close();
  server->Stop();
  actions_.Clear();
  if (was_acquiring) events_.Tell(ServerEvent::AcquisitionStop);
  if (was_controlled) events_.Tell(ServerEvent::Disconnected);
  events_.Close();
  const MutexLock lock(TreeLock());
  Thaw();
  stopping_ = false;
}

void Device::Abandon() noexcept {
  std::unique_ptr<ControlServer> server;
  std::shared_ptr<StreamChannel> stream;
  events_.Close();
  actions_.Clear();
  const MutexLock lock(TreeLock());
  stream = TakeDown(server);
}

Endpoint Device::Local() const {
  const MutexLock lock(TreeLock());
  return server_ && !Inherited() ? server_->Local() : Endpoint{};
}

Endpoint Device::Remote() const {
  const MutexLock lock(TreeLock());
  return server_ && !Inherited() ? channel_.Privilege().Holder() : Endpoint{};
}

StreamDriver Device::Driver() const {
  const MutexLock lock(TreeLock());
  return stream_ ? stream_->Driver() : last_driver_;
}

std::size_t Device::ResendDepth() const {
  const MutexLock lock(TreeLock());
  return resend_depth_;
}

void Device::SetResendDepth(std::int64_t depth) {
  const MutexLock lock(TreeLock());
  CheckStopped("the number of resend buffers can change");
  if (!format_) throw EngineError(Failure::kNoStream, "a server without a stream has no resend buffers");
  if (depth < 0 || depth > kMostResendBuffers) {
    throw EngineError(Failure::kOutOfRange, "the number of resend buffers must lie between 0 and " +
                                                std::to_string(kMostResendBuffers));
  }
  resend_depth_ = static_cast<std::size_t>(depth);
}

std::string Device::UserVersion() const {
  const MutexLock lock(TreeLock());
  return user_version_;
}

void Device::SetUserVersion(const std::string& version) {
  constexpr std::size_t kMost = 31;  // the register has 32 bytes and ends with a zero
  const MutexLock lock(TreeLock());
  user_version_ = Cropped(version, kMost);
  const std::string whole = user_version_.empty() ? kLibraryVersion : kLibraryVersion + (" " + user_version_);
  StoreText(tree_.Memory(), Bootstrap::kDeviceVersion, 32, whole);
}

std::uint32_t Device::XmlVersion(int part) const {
  const MutexLock lock(TreeLock());
  return xml_version_[part];
}

void Device::SetXmlVersion(int part, std::int64_t value) {
  const MutexLock lock(TreeLock());
  CheckStopped("the version of the description can change");
  if (value < 0 || value > INT32_MAX) {
    throw EngineError(Failure::kOutOfRange,
                      "a part of a version must lie between 0 and " + std::to_string(INT32_MAX));
  }
  xml_version_[part] = static_cast<std::uint32_t>(value);
}

}  // namespace Tarn
