#pragma once

/// Sends a batch of datagrams and deals with what the system answers.

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstddef>

#include "camera/net/datagram_batch.h"

namespace Tarn {

/// The two system calls of sending; tests put others in their place.
class DatagramOutput {
 public:
  virtual ~DatagramOutput() = default;

  /// As sendmmsg, without waiting: messages taken, or -1 and errno.
  virtual int SendMessages(mmsghdr* messages, unsigned count) noexcept = 0;

  /// Returns when a send may succeed, or after `timeout`.
  virtual void WaitWritable(std::chrono::milliseconds timeout) noexcept = 0;
};

/// What became of a batch. Datagrams are counted in order: the first `sent + failed` of the batch are done
/// with.
struct BatchResult {
  std::size_t sent = 0;
  std::size_t failed = 0;      ///< the system refused them; they are lost
  std::size_t sent_bytes = 0;  ///< UDP payload
  std::size_t failed_bytes = 0;
  std::size_t unreachable = 0;  ///< reports that nobody takes them, about these datagrams or earlier ones
  bool train_refused = false;   ///< the next datagrams stand in a train that the system does not take
};

/// Sends all messages of the batch, in order.
///
/// A full socket is waited for, but not for long: a lost datagram can be asked for again, a stuck sender
/// cannot. Errors that a datagram left behind (a client that is gone) are cleared by trying again. A train
/// that cannot be segmented ends the sending; the caller may try its datagrams one by one.
/// \param stop  set by others: return soon, with fewer datagrams
/// Throws: nothing. Allocates nothing, logs nothing.
BatchResult SendBatch(DatagramOutput& output, DatagramBatch& batch, const std::atomic<bool>& stop) noexcept;

}  // namespace Tarn
