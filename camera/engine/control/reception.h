#pragma once

/// What is to be done with a datagram that just came in.

#include "camera/base/clock.h"

namespace Tarn {

struct Reception {
  enum class Turn {
    Now,             ///< to be executed at once
    Listeners,       ///< as well, but where listeners may be called
    ListenersFirst,  ///< there, but ahead of what clients without control wait for
    Later,           ///< at `due`
    Never,           ///< to be dropped
  };

  Turn turn = Turn::Now;
  Instant due;
};

}  // namespace Tarn
