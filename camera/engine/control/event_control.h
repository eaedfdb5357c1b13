#pragma once

/// Which events the client is told of, and where to.

#include <cstdint>
#include <vector>

#include "camera/base/clock.h"
#include "camera/engine/control/device_clock.h"
#include "camera/engine/control/effects.h"
#include "camera/engine/features/user_events.h"
#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {

/// Follows the registers of the message channel and of EventNotification.
/// Threads: one at a time.
class EventControl {
 public:
  EventControl(FeatureTree& tree, const DeviceClock& clock, Effects& effects)
      : tree_(tree), clock_(clock), effects_(effects) {}

  /// The tree is about to be published: finds the program's events.
  /// Throws: as DefineUserEvents and FindEventSources.
  void Publish();

  /// The device starts: from now on stores into registers that belong to events are watched.
  /// \param source_port  from which event messages leave
  void Open(std::uint16_t source_port);
  void Close();

  /// Somebody stored into a register of the message channel.
  void OnChannelWritten();
  /// Somebody stored into a register behind EventNotification.
  void OnNotificationWritten();
  /// The program stored into a register that belongs to events.
  void OnSourceWritten(const FeatureTree::WatchedStore& store, Instant now);

  /// Something happened: the client is told where it wants that.
  /// \param data  what goes with the event
  void Report(std::uint16_t number, Instant when, std::vector<std::uint8_t> data = {});

 private:
  FeatureTree& tree_;
  const DeviceClock& clock_;
  Effects& effects_;
  std::uint16_t source_port_ = 0;  ///< 0 while closed
  EventSources sources_;           ///< since Publish
};

}  // namespace Tarn
