#pragma once

/// The programs that receive stream packets: they read all that comes, and answer when asked.

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

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
  /// Prints a line about what came since the last answer.
  virtual void Answer() = 0;
};

enum class Stamps { Off, On };

/// The whole program, with the arguments `address receive_buffer_bytes`: prints the port first, then for each
/// line on standard input reads on until nothing has come for a while, and lets the sink answer.
/// Returns the exit code, at the end of standard input.
int RunReceiver(int argc, char** argv, Stamps stamps, PacketSink& sink);

}  // namespace Tarn
