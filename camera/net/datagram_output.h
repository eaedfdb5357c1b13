#pragma once

/// Sends a batch of datagrams and deals with what the system answers.

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstddef>

#include "camera/net/datagram_batch.h"

namespace Tarn {

/// What the network reported about datagrams of this call or of earlier ones.
struct NetworkReports {
  std::size_t unreachable = 0;  ///< times that nobody takes them: no such client, port, host or route
  unsigned mtu = 0;  ///< bytes that the interface carries, when one was refused as too large; else 0
};

/// The system calls of sending; tests put others in their place.
class DatagramOutput {
 public:
  virtual ~DatagramOutput() = default;

  /// As sendmmsg, without waiting: messages taken, or -1 and errno.
  virtual int SendMessages(mmsghdr* messages, unsigned count) noexcept = 0;

  /// Returns when the socket has room again, or after `timeout`.
  virtual void WaitWritable(std::chrono::microseconds timeout) noexcept = 0;

  /// Returns after that time: of room in the queues behind the socket nobody tells.
  virtual void Pause(std::chrono::microseconds time) noexcept = 0;

  /// Takes the reports that wait, at most some dozens, and adds them up. Returns whether there were any from the
  /// network: one of these makes a send fail that it has nothing to do with.
  virtual bool DrainErrors(NetworkReports& reports) noexcept = 0;
};

/// What became of a batch. Datagrams are counted in order: the first `sent + failed` of the batch are done
/// with.
struct BatchResult : NetworkReports {
  std::size_t sent = 0;
  std::size_t sent_bytes = 0;    ///< UDP payload
  std::size_t failed = 0;        ///< the system did not take them; they are lost
  std::size_t failed_bytes = 0;  ///< UDP payload
  std::size_t queue_full = 0;    ///< times that a queue of the host had no room
  std::size_t refused = 0;       ///< times that a rule of the host forbade it: firewall, prohibiting route
  std::size_t too_large = 0;     ///< times that a datagram alone was longer than the interface carries
  bool train_refused = false;    ///< the next datagrams stand in a train that the system does not take
};

/// Sends all messages of the batch, in order.
///
/// A full socket or queue is waited for, but ends after a tenth of a second in which nothing was taken: what is left
/// of the batch has then failed. A lost datagram can be asked for again, a stuck sender cannot. Reports that a
/// datagram left behind (a client that is gone) fail no other one.
///
/// A train that cannot be segmented ends the sending, and so does one that a full queue did not take: shapers cut
/// trains themselves, and then drop parts of them without a word. The caller goes on with single datagrams;
/// after a full queue they may be trains again once a batch was taken without `queue_full`.
/// \param stop  set by others: return within 5 ms, with fewer datagrams
/// Throws: nothing. Allocates nothing, logs nothing.
BatchResult SendBatch(DatagramOutput& output, DatagramBatch& batch, const std::atomic<bool>& stop) noexcept;

}  // namespace Tarn
