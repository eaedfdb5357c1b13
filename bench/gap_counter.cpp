// A receiver of one camera's packets that keeps only when they came, by the kernel's time stamps.
//
// usage: gap_counter address receive_buffer_bytes
// Prints the port first. For each line on standard input it reads on until nothing has come for a while, then
// answers with a line of what came since the last answer: packets, packets that are missing between the first
// and the last of their frames, frames that began; of the gaps between neighbours within a frame the median,
// the 99th percentile and the longest, in microseconds; the median of the frames' rates from the first packet
// to the last, in bytes of IP packets per second.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <vector>

#include "bench/quantile.h"
#include "bench/receiver.h"
#include "camera/wire/gvsp.h"

namespace Tarn {
namespace {

constexpr std::size_t kIpAndUdpBytes = 20 + 8;

class Gaps : public PacketSink {
 public:
  void Take(const Received& received) override {
    ByteReader in(received.head);
    const std::int64_t now = received.nanoseconds;
    const std::optional<StreamHeader> header = StreamHeader::Decode(in);
    if (!header) return;
    ++packets_;
    if (header->format == StreamFormat::Leader) {
      ++frames_;
      begin_ = now;
      frame_bytes_ = 0;
    } else if (header->block_id == block_ && header->packet_id > packet_) {
      const std::uint32_t missing = header->packet_id - packet_ - 1;
      missing_ += missing;
      if (missing == 0) gaps_.push_back(now - last_);
      frame_bytes_ += received.size + kIpAndUdpBytes;
      if (header->format == StreamFormat::Trailer && now > begin_) {
        rates_.push_back(static_cast<double>(frame_bytes_) * 1e9 / static_cast<double>(now - begin_));
      }
    }
    block_ = header->block_id;
    packet_ = header->packet_id;
    last_ = now;
  }

  void Answer() override {
    const double longest = gaps_.empty() ? 0 : static_cast<double>(*std::ranges::max_element(gaps_));
    std::printf("%llu %llu %llu %.3f %.3f %.3f %.0f\n", packets_, missing_, frames_,
                Quantile(gaps_, 0.5) / 1e3, Quantile(gaps_, 0.99) / 1e3, longest / 1e3,
                Quantile(rates_, 0.5));
    packets_ = missing_ = frames_ = 0;
    gaps_.clear();
    rates_.clear();
  }

 private:
  unsigned long long packets_ = 0;
  unsigned long long missing_ = 0;
  unsigned long long frames_ = 0;
  std::uint64_t block_ = 0;
  std::uint32_t packet_ = 0;
  std::int64_t last_ = 0;
  std::int64_t begin_ = 0;
  std::size_t frame_bytes_ = 0;  // behind the leader
  std::vector<std::int64_t> gaps_;
  std::vector<double> rates_;
};

}  // namespace
}  // namespace Tarn

int main(int argc, char** argv) {
  Tarn::Gaps gaps;
  return Tarn::RunReceiver(argc, argv, Tarn::Stamps::On, gaps);
}
