#pragma once

/// One GigE Vision device: its feature tree, the threads that answer clients, and its stream.

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "camera/base/endpoint.h"
#include "camera/base/process_mutex.h"
#include "camera/device/action_queue.h"
#include "camera/device/control_server.h"
#include "camera/device/device_clock.h"
#include "camera/device/identity.h"
#include "camera/device/message_channel.h"
#include "camera/device/server_events.h"
#include "camera/device/stream_channel.h"
#include "camera/device/tree_lock.h"
#include "camera/engine/control/control_channel.h"
#include "camera/engine/features/chunk_set.h"
#include "camera/engine/features/standard_features.h"
#include "camera/engine/features/user_events.h"
#include "camera/engine/features/user_sets.h"
#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/registers/register_file.h"
#include "camera/engine/stream/image_layout.h"
#include "camera/engine/xml/description.h"

namespace Tarn {

/// A camera, or a device without a stream, from its creation to its end.
///
///   | state      | Start   | Stop    | client takes control | client leaves, or falls silent |
///   |------------+---------+---------+----------------------+--------------------------------|
///   | stopped    | started | stopped | -                    | -                              |
///   | started    | refused | stopped | controlled           | -                              |
///   | controlled | refused | stopped | -                    | started                        |
///
/// While controlled, acquisition is off or on, as the client's commands have it; images are sent while it is
/// on.
///
/// Threads: any thread. No call but Stop waits for a thread of the device.
class Device final : public ControlService, public TreeOwner, public std::enable_shared_from_this<Device> {
 public:
  /// \param format  what is sent; empty for a device without a stream
  static std::shared_ptr<Device> Create(const std::optional<SensorFormat>& format,
                                        StreamDriver driver = StreamDriver::Auto);
  ~Device() override;

  /// Publishes the description and opens the sockets on `address`.
  /// Throws: EngineError kWrongState when started, or the failure of the first node that cannot be published;
  ///   std::system_error when a socket cannot be had. The device is stopped as before then.
  void Start(std::uint32_t address);

  /// Ends sending, tells the owners of all images, ends the threads. May be called from a callback.
  void Stop();

  /// Stop without waiting, for when nobody holds the device any more.
  void Abandon() noexcept;

  /// True in a forked child for a device of the parent, whose threads and sockets do not exist here. It
  /// cannot be started and sends nothing; stopping it does nothing, and it must not be destroyed.
  bool Inherited() const noexcept { return generation_ != ForkGeneration(); }

  /// Sends an image that lies in memory as `image` says.
  /// Throws: EngineError kNoStream, kInvalidArgument when it does not fit the format or the payload size; the
  /// owner is not told then.
  void Send(const ImageMemory& image, BlockOwner owner);

  /// Addresses; 0.0.0.0:0 where there is none.
  Endpoint Local() const;
  Endpoint Remote() const;

  /// What is in use; before the first start what was asked for.
  StreamDriver Driver() const;
  bool AcquisitionActive() const { return acquiring_; }
  ServerEvents& Events() { return events_; }

  std::size_t ResendDepth() const;
  /// Throws: EngineError kOutOfRange, kWrongState while started.
  void SetResendDepth(std::int64_t depth);

  std::string UserVersion() const;
  void SetUserVersion(const std::string& version);

  /// Version of the description file: 0 major, 1 minor, 2 sub-minor.
  std::uint32_t XmlVersion(int part) const;
  /// Throws: EngineError kOutOfRange, kWrongState while started.
  void SetXmlVersion(int part, std::int64_t value);

  /// Requires: the tree lock.
  FeatureTree& Tree() { return tree_; }

  // TreeOwner
  void Settle() override;

  // ControlService
  Reception Arrived(const ControlRequest& request) override;
  std::size_t Execute(const ControlRequest& request, MutableByteView answer) override;
  void Answered() override;
  Instant Deadline() override;
  bool Tick(Instant now, const std::vector<Endpoint>& waiting) override;
  void Call() override;
  std::optional<std::chrono::milliseconds> PendingAfter() override;

 private:
  class Actions;

  /// An image of a limited acquisition was accepted; after the last one the acquisition ends. Does nothing
  /// when that acquisition is over. Takes the tree lock.
  void CountFrame(std::uint64_t acquisition);

  Device(const std::optional<SensorFormat>& format, StreamDriver driver);

  // All of these require the tree lock.
  void CheckStopped(const char* what) const;
  void Publish(const NetworkIdentity& network);
  void OpenStream(const NetworkIdentity& network);
  void SetLimit(const char* feature, std::int64_t max);
  void CountAnswer(ByteView answer);
  /// Stores what was counted into its registers.
  void ShowCounters();
  void FollowStores();
  void FollowStore(std::uint64_t address);
  void FollowPrivilege();
  void FollowStreamPort();
  void FollowTimestampControl();
  void FallSilent(Instant now, const std::vector<Endpoint>& waiting);
  void FireSignals(SignalSet signals);
  void OpenMessages(std::uint32_t address);
  void FollowMessageChannel();
  void FollowNotification();
  void WatchEventSources();
  void ForgetEventSources();
  /// The program stored into a register that belongs to events.
  void FollowEventStore(const FeatureTree::WatchedStore& store);
  /// Tells the client, if it wants to know.
  /// \param data  what goes with the event
  void TellEvent(std::uint16_t number, std::vector<std::uint8_t> data = {});
  std::uint32_t ImagePayloadSize() const;
  void UpdatePayloadSize();
  /// What goes out with an image that is sent now: leader and chunks.
  /// \param sample_bytes  the image's own size
  void DescribeBlock(ImageBlock& block, std::size_t sample_bytes);
  void LoadUserSet();
  void SaveUserSet();
  void StartAcquisition();
  /// What becomes of images that were accepted and are not sent yet.
  enum class Unsent { Drop, Send };
  void StopAcquisition(Unsent unsent = Unsent::Drop);
  void LockParameters(bool locked);
  void PostStreamConfig();
  StreamConfig ReadStreamConfig() const;
  void Post(ServerEvent event);
  std::shared_ptr<StreamChannel> TakeDown(std::unique_ptr<ControlServer>& server);
  void Thaw();

  const unsigned generation_ = ForkGeneration();
  const std::optional<SensorFormat> format_;
  const StreamDriver requested_driver_;
  const std::shared_ptr<DeviceClock> clock_ = std::make_shared<DeviceClock>();  // outlived by the channels
  ServerEvents events_;
  ActionQueue actions_;
  std::atomic<bool> acquiring_ = false;  // written under the tree lock, read anywhere

  // Guarded by the tree lock.
  FeatureTree tree_;
  RegisterFile registers_{tree_};
  ControlChannel channel_{tree_, registers_, std::random_device()()};
  ChunkSet chunks_;
  UserSets user_sets_{tree_, registers_};
  std::vector<PlacedRegister> loaded_;  ///< by a command whose listeners have not heard of it yet
  std::deque<std::uint32_t> fired_;     ///< registers of signals whose listeners have not heard yet
  std::unique_ptr<ControlServer> server_;
  std::shared_ptr<StreamChannel> stream_;
  std::shared_ptr<MessageChannel> messages_;
  EventSources event_sources_;  ///< while started
  StreamDriver last_driver_;
  std::size_t resend_depth_ = 0;
  std::string user_version_;
  std::uint32_t xml_version_[3] = {1, 0, 0};
  std::uint64_t acquisition_ = 0;         ///< number of the latest one
  std::int64_t frames_left_ = 0;          ///< of a limited acquisition; negative: no limit
  std::uint64_t heartbeat_timeouts_ = 0;  ///< since the start
  std::uint64_t refused_commands_ = 0;    ///< since the start
  bool stopping_ = false;                 ///< the threads of the last run have not ended yet
  bool controlled_ = false;               ///< what listeners were told last
  bool test_packet_wanted_ = false;
  std::optional<std::uint32_t> given_payload_size_;  ///< by the program, without chunks; else it is computed
};

}  // namespace Tarn
