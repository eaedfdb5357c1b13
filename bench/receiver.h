#pragma once

/// The programs that receive stream packets: they read all that comes, and answer when asked.

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "camera/base/bytes.h"

namespace Tarn {

/// One datagram, cut short.
struct Received {
  const sockaddr_in& source;
  ByteView head;             ///< enough for every header; the rest was thrown away unread
  std::size_t size;          ///< of the whole datagram
  std::int64_t nanoseconds;  ///< when the system had it, of the realtime clock; 0 without Stamps::On
};

/// What a receiver makes of its packets.
class PacketSink {
 public:
  virtual ~PacketSink() = default;
  virtual void Take(const Received& received) = 0;
  /// What is due at the present time, when all that was there has been taken. Returns after how many
  /// nanoseconds it wants to be called again, packets or not; empty when that may take any time.
  virtual std::optional<std::int64_t> Tick() { return std::nullopt; }
  /// Prints a line about what came since the last answer.
  virtual void Answer() = 0;
};

enum class Stamps { Off, On };

/// The whole program, with the arguments `address receive_buffer_bytes` and what the sink has behind them:
/// prints the port first, then for each line on standard input reads on until nothing has come for a while, and
/// lets the sink answer. Returns the exit code, at the end of standard input.
int RunReceiver(int argc, char** argv, Stamps stamps, PacketSink& sink);

}  // namespace Tarn
