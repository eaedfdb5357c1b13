#pragma once

/// The last write of the client in control with its answer: when the answer was lost the client asks again
/// with the same bytes, and the write must not be done twice.

#include <cstdint>
#include <vector>

#include "camera/base/bytes.h"
#include "camera/base/endpoint.h"

namespace Tarn {

/// Others' writes are refused, which can be done any number of times.
class AnsweredWrite {
 public:
  /// The stored answer when `command` repeats the write to the byte; empty otherwise.
  ByteView Find(Endpoint client, ByteView command) const;
  void Remember(Endpoint client, ByteView command, ByteView answer);
  /// Another client may begin with the request id that the last one ended on.
  void Clear();

 private:
  Endpoint client_;
  std::vector<std::uint8_t> command_;
  std::vector<std::uint8_t> answer_;
};

}  // namespace Tarn
