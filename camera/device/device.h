#pragma once

/// One GigE Vision device: its feature tree, the threads that answer clients, and its stream.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "camera/base/endpoint.h"
#include "camera/base/process_mutex.h"
#include "camera/device/control_threads.h"
#include "camera/device/message_channel.h"
#include "camera/device/node_lock.h"
#include "camera/device/server_events.h"
#include "camera/device/stream_channel.h"
#include "camera/engine/control/control_plane.h"
#include "camera/engine/control/publication.h"
#include "camera/engine/features/standard_features.h"
#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {

/// What is left to do of an input's effects when the device's lock is let go. Kept by its thread, for its memory.
struct Outbox {
  std::vector<ControlDatagram> datagrams;
  std::shared_ptr<ControlThreads> port;          ///< from which they leave
  std::shared_ptr<MessageChannel> messages;      ///< with events that are to be sent
  std::shared_ptr<StreamChannel> tested_stream;  ///< that is to send a test packet
  bool server_events = false;                    ///< were posted
};

/// A camera, or a device without a stream, from its creation to its end.
///
///   | state    | Start             | Stop             |
///   |----------+-------------------+------------------|
///   | Stopped  | Starting, Started | Stopped          |
///   | Starting | refused           | Starting         |
///   | Started  | refused           | Stopping, Stopped |
///   | Stopping | refused           | Stopping         |
///
/// What it does while started is the control plane's: this class gives it inputs under the lock of the feature
/// tree, carries out what follows, and wakes the thread that waits for its deadline. There is no other way to it.
///
/// Threads: any thread. No call but Stop waits for a thread of the device.
class Device final : public TreeOwner, public std::enable_shared_from_this<Device> {
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

  /// Whether Send would not have to wait for earlier images.
  bool HasImagePlace() const;

  /// Addresses; 0.0.0.0:0 where there is none.
  Endpoint Local() const;
  Endpoint Remote() const;

  /// What is in use; before the first start what was asked for.
  StreamDriver Driver() const;
  bool AcquisitionActive() { return plane_.Functions().TheAcquisition().Active(); }
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

  /// Guarded by its NodeLock.
  FeatureTree& Tree() { return tree_; }

  // TreeOwner
  void OnStored() override;

  // For the control threads, each with an outbox of its own. They do nothing while the device is not started.
  /// When Advance must be called next.
  Instant Arm();
  /// Takes a datagram that came in.
  /// \return as Arm
  Instant Receive(const ControlRequest& request, Outbox& outbox);
  /// \param now  up to which all datagrams were given to Receive
  /// \return as Arm
  Instant Advance(Instant now, Outbox& outbox);
  /// The machine's links, addresses or routes changed.
  void LinksChanged(Outbox& outbox);
  /// The listeners that are to be called next; those of the call before were called.
  Listeners NextCalls(Outbox& outbox);

 private:
  enum class State { Stopped, Starting, Started, Stopping };

  /// What a started device talks through.
  struct Channels {
    std::shared_ptr<ControlThreads> control;
    std::shared_ptr<MessageChannel> messages;
    std::shared_ptr<StreamChannel> stream;  ///< null without a stream
  };

  Device(const std::optional<SensorFormat>& format, StreamDriver driver);

  /// Gives the control plane an input with `give()`, and carries out what follows.
  template <class Give>
  void Input(Outbox& outbox, Give&& give);

  // All of these require the tree's lock.
  void CheckStopped(const char* what) const;
  void ApplyEffects(Outbox& outbox);
  void Apply(const ChannelOrder& order, Outbox& outbox);
  void ShowCounters();
  Channels TakeDown(Outbox& outbox);

  void TakeTree();
  void Publish(const NetworkIdentity& network);
  void OpenSockets(const NetworkIdentity& network);
  void Dispatch(Outbox& outbox) noexcept;
  void ReleaseTree();

  const unsigned generation_ = ForkGeneration();
  const std::optional<SensorFormat> format_;
  const StreamDriver requested_driver_;
  const std::shared_ptr<DeviceClock> clock_ =
      std::make_shared<DeviceClock>(Now());  // outlived by the channels
  const DeviceMutex mutex_;                  ///< the tree's lock while not stopped
  ServerEvents events_;

  // Guarded by the tree's lock.
  State state_ = State::Stopped;
  FeatureTree tree_;
  Effects effects_;
  ControlPlane plane_;
  Instant armed_ = Instant::max();  ///< the deadline that the thread that receives knows of
  Channels channels_;               ///< none but while started
  StreamDriver last_driver_;
  std::size_t resend_depth_ = 0;
  std::string user_version_;
  XmlVersionNumbers xml_version_ = {1, 0, 0};
};

}  // namespace Tarn
