#pragma once

/// Commands that were answered a short while ago: when the answer was lost the client asks again with the same
/// bytes, and what was done must not be done twice.

#include <array>
#include <cstdint>
#include <vector>

#include "camera/base/bytes.h"
#include "camera/base/clock.h"
#include "camera/base/endpoint.h"

namespace Tarn {

/// Threads: one at a time.
class AnsweredCommands {
 public:
  /// The answer to the same bytes of the same source; empty when they are a new command. After five seconds
  /// they are: clients ask again within fewer, and programs begin anew with the ids that they used before.
  ByteView Find(Endpoint source, ByteView command, Instant now) const;

  /// In the place of the oldest one.
  void Remember(Endpoint source, ByteView command, ByteView answer, Instant now);

  void Clear();

 private:
  struct Answered {
    Endpoint source;
    std::vector<std::uint8_t> command;
    std::vector<std::uint8_t> answer;
    Instant when;
  };

  std::array<Answered, 32> answered_;
  std::size_t next_ = 0;
};

}  // namespace Tarn
