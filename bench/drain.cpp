// A receiver of one or many cameras' packets that only counts: frames that came whole, packets, and what was odd.
//
// usage: drain address receive_buffer_bytes
// Prints the port first. For each line on standard input it reads on until nothing has come for a while, then
// answers with a line of what came since the last answer: packets, frames whose packets came without a gap,
// times that a block id was not the next one, times that a leader's timestamp did not rise, highest block id.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <unordered_map>

#include "bench/receiver.h"
#include "camera/engine/stream/block_ids.h"
#include "camera/wire/gvsp.h"

namespace Tarn {
namespace {

/// What is known of one sender's stream.
struct Stream {
  std::uint64_t block = 0;
  std::uint32_t next_packet = 0;
  std::uint64_t timestamp = 0;
};

class Counts : public PacketSink {
 public:
  void Take(const Received& received) override {
    ByteReader in(received.head);
    const std::optional<StreamHeader> header = StreamHeader::Decode(in);
    if (!header) return;
    ++packets_;
    Stream& stream =
        streams_[std::uint64_t{received.source.sin_addr.s_addr} << 16 | received.source.sin_port];
    if (header->format == StreamFormat::Leader) {
      Begin(stream, *header);
      TakeTimestamp(stream, in);
    }
    if (header->block_id == stream.block && header->packet_id == stream.next_packet) ++stream.next_packet;
    if (header->format == StreamFormat::Trailer && header->packet_id + 1 == stream.next_packet) {
      ++whole_frames_;
    }
  }

  void Answer() override {
    std::printf("%llu %llu %llu %llu %llu\n", packets_, whole_frames_, id_slips_, clock_slips_,
                highest_block_);
    packets_ = whole_frames_ = id_slips_ = clock_slips_ = highest_block_ = 0;
  }

 private:
  void Begin(Stream& stream, const StreamHeader& header) {
    const bool wraps = !header.extended && stream.block == BlockIds::kMaxStandard;
    if (stream.block != 0 && header.block_id != (wraps ? 1 : stream.block + 1)) ++id_slips_;
    stream.block = header.block_id;
    highest_block_ = std::max<unsigned long long>(highest_block_, stream.block);
    stream.next_packet = 0;
  }

  void TakeTimestamp(Stream& stream, ByteReader& in) {
    const std::optional<ImageLeader> leader = ImageLeader::Decode(in);
    if (!leader) return;
    if (leader->timestamp <= stream.timestamp) ++clock_slips_;
    stream.timestamp = leader->timestamp;
  }

  unsigned long long packets_ = 0;
  unsigned long long whole_frames_ = 0;
  unsigned long long id_slips_ = 0;
  unsigned long long clock_slips_ = 0;
  unsigned long long highest_block_ = 0;
  std::unordered_map<std::uint64_t, Stream> streams_;  // by address and port
};

}  // namespace
}  // namespace Tarn

int main(int argc, char** argv) {
  Tarn::Counts counts;
  return Tarn::RunReceiver(argc, argv, Tarn::Stamps::Off, counts);
}
