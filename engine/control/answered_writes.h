#pragma once

/// The last write of each client with its answer: a client that missed the answer asks again with the same
/// bytes, and the write must not be done twice.

#include <array>
#include <cstdint>
#include <vector>

#include "base/bytes.h"
#include "base/endpoint.h"

namespace Tarn {

class AnsweredWrites {
 public:
  /// The stored answer when `command` repeats the client's last write to the byte; empty otherwise.
  ByteView Find(Endpoint client, ByteView command) const;
  void Remember(Endpoint client, ByteView command, ByteView answer);
  /// Another client may begin with the request id that the last one ended on.
  void Clear();

 private:
  struct Entry {
    Endpoint client;
    std::vector<std::uint8_t> command;
    std::vector<std::uint8_t> answer;
  };

  // Writers need control, so one place would do; the others are for refused writes.
  std::array<Entry, 4> entries_;
  std::size_t next_ = 0;
};

}  // namespace Tarn
