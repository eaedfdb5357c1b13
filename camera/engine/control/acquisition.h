#pragma once

/// Acquisition: whether images are taken from the program, and how many more.

#include <atomic>
#include <cstdint>
#include <optional>

#include "camera/base/clock.h"
#include "camera/engine/control/effects.h"
#include "camera/engine/control/event_control.h"
#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {

/// Threads: one at a time, except Active(), which any thread may ask.
class Acquisition {
 public:
  Acquisition(FeatureTree& tree, EventControl& events, Effects& effects)
      : tree_(tree), events_(events), effects_(effects) {}

  bool Active() const { return active_; }

  /// Does nothing while it is active.
  void Start(Instant now);
  /// Does nothing while it is not active.
  /// \param send_accepted  images that were accepted still go out; else they are dropped
  void Stop(bool send_accepted, Instant now);

  /// Number of the acquisition; empty when its images are not counted.
  std::optional<std::uint64_t> Limited() const;
  /// An image of a limited acquisition was accepted; behind the last one the acquisition ends. Does nothing when
  /// that acquisition is over.
  void CountFrame(std::uint64_t acquisition, Instant now);

 private:
  void LockParameters(bool locked);

  FeatureTree& tree_;
  EventControl& events_;
  Effects& effects_;
  std::atomic<bool> active_ = false;  // written by Start and Stop, read anywhere
  std::uint64_t number_ = 0;
  std::int64_t frames_left_ = 0;  ///< negative: no limit
};

}  // namespace Tarn
