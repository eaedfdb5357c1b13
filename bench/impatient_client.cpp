// A client that asks for missing packets soon, a few times only, and loses some of what comes on purpose.
//
// usage: impatient_client address receive_buffer_bytes camera_address trailer_id lost_share seed
// A packet is missed when a later one of its block comes, when the next block begins, or when nothing of the
// block came for a while. It is asked for 0.3, 1 and 1.5 ms later, from the address of the stream, neighbours in
// one command; its frame is given up 2 ms after it was missed. Of all packets that come, those that were sent
// again, too, that share is thrown away at random.
// Prints the port first. For each line on standard input it reads on until nothing has come for a while, then
// answers with a line of what came since the last answer:
// - frames: whole, given up;
// - packets: that came, that were thrown away of those not asked for, missed;
// - commands, and the packets in them, each as often as it was asked for;
// - packets that came again, those that were thrown away among them; that came although they were there; that
//   came when their frame was given up; refusals;
// - the times from a request for a packet to that packet, by the kernel's time stamps: median, 99th percentile
//   and longest, in microseconds. An answer counts for the oldest request without one.

#include <arpa/inet.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "bench/quantile.h"
#include "bench/receiver.h"
#include "camera/wire/gvcp.h"
#include "camera/wire/gvsp.h"

namespace Tarn {
namespace {

constexpr std::array<std::int64_t, 3> kAsk = {300'000, 1'000'000, 1'500'000};  // ns after a packet was missed
constexpr std::int64_t kGiveUp = 2'000'000;                                    // likewise
constexpr std::int64_t kSilence = 5'000'000;  // ns; then the rest of a block is missed
constexpr std::size_t kRemembered = 8;        // blocks

std::int64_t Now() {
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/// Sends requests for packets.
class Asker {
 public:
  /// Ok() tells whether the system took the addresses.
  Asker(const char* own_address, const char* camera_address) {
    sockaddr_in own{};
    own.sin_family = AF_INET;
    sockaddr_in camera = own;
    camera.sin_port = htons(kControlPort);
    fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
    ok_ = ::inet_pton(AF_INET, own_address, &own.sin_addr) == 1 &&
          ::inet_pton(AF_INET, camera_address, &camera.sin_addr) == 1 &&
          ::bind(fd_, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
          ::connect(fd_, reinterpret_cast<const sockaddr*>(&camera), sizeof camera) == 0;
  }
  ~Asker() { ::close(fd_); }
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;

  bool Ok() const { return ok_; }

  void Ask(std::uint64_t block, std::uint32_t first, std::uint32_t last) {
    constexpr std::uint16_t kLength = 12;
    std::array<std::uint8_t, CommandHeader::kSize + kLength> bytes;
    ByteWriter out(bytes);
    request_id_ = request_id_ == 0xFFFF ? std::uint16_t{1} : static_cast<std::uint16_t>(request_id_ + 1);
    CommandHeader{0, Command::PacketResend, kLength, request_id_}.Encode(out);
    out.Put(std::uint16_t{0});  // channel
    out.Put(static_cast<std::uint16_t>(block));
    out.Put(first);
    out.Put(last);
    ::send(fd_, bytes.data(), bytes.size(), 0);
  }

 private:
  int fd_ = -1;
  bool ok_ = false;
  std::uint16_t request_id_ = 0;
};

struct Missing {
  std::int64_t since = 0;
  std::array<std::int64_t, kAsk.size()> asked_at{};
  std::size_t asked = 0;
  std::size_t answered = 0;

  std::int64_t Due() const { return since + (asked < kAsk.size() ? kAsk[asked] : kGiveUp); }
};

enum class State { Open, Whole, GivenUp };

struct Block {
  State state = State::Open;
  std::uint32_t next = 0;  // packet behind the last one that came
  std::int64_t last_came = 0;
  std::map<std::uint32_t, Missing> missing;
};

struct Counts {
  unsigned long long whole = 0, given_up = 0;
  unsigned long long came = 0, thrown = 0, missed = 0;
  unsigned long long commands = 0, asked = 0;
  unsigned long long again = 0, twice = 0, late = 0, refused = 0;
};

class ImpatientClient : public PacketSink {
 public:
  ImpatientClient(Asker& asker, std::uint32_t trailer, double lost_share, unsigned seed)
      : asker_(asker), trailer_(trailer), dice_(seed), lost_(lost_share) {}

  void Take(const Received& received) override {
    ByteReader in(received.head);
    const std::optional<StreamHeader> header = StreamHeader::Decode(in);
    if (!header || header->block_id == 0) return;  // a test packet
    ++counts_.came;
    if (header->status != StreamStatus::kSuccess && header->status != StreamStatus::kResent) {
      ++counts_.refused;
      return;
    }
    Block& block = BlockOf(header->block_id);
    block.last_came = Now();
    const std::uint32_t id = header->packet_id;
    const bool thrown = lost_(dice_);
    if (id >= block.next) {
      TakeNew(block, id, thrown);
    } else {
      TakeAgain(block, id, thrown, received.nanoseconds);
    }
    EndWhenWhole(block);
  }

  std::optional<std::int64_t> Tick() override {
    std::optional<std::int64_t> due;
    const std::int64_t now = Now();
    for (auto& [id, block] : blocks_) {
      if (block.state != State::Open) continue;
      if (block.next <= trailer_ && now - block.last_came >= kSilence) Miss(block, trailer_ + 1, now);
      if (HasAskedInVain(block, now)) {
        block.state = State::GivenUp;
        ++counts_.given_up;
        continue;
      }
      AskFor(id, block, now);
      if (block.next <= trailer_) due = std::min(due.value_or(INT64_MAX), block.last_came + kSilence);
      for (const auto& [packet, missing] : block.missing) {
        due = std::min(due.value_or(INT64_MAX), missing.Due());
      }
    }
    if (due) due = std::max<std::int64_t>(0, *due - now);
    return due;
  }

  void Answer() override {
    const double longest = times_.empty() ? 0 : static_cast<double>(*std::ranges::max_element(times_));
    std::printf("%llu %llu %llu %llu %llu %llu %llu %llu %llu %llu %llu %.1f %.1f %.1f\n", counts_.whole,
                counts_.given_up, counts_.came, counts_.thrown, counts_.missed, counts_.commands,
                counts_.asked, counts_.again, counts_.twice, counts_.late, counts_.refused,
                Quantile(times_, 0.5) / 1e3, Quantile(times_, 0.99) / 1e3, longest / 1e3);
    counts_ = {};
    times_.clear();
  }

 private:
  /// What is left of the block before is missed when a new one begins.
  Block& BlockOf(std::uint64_t id) {
    const auto found = blocks_.find(id);
    if (found != blocks_.end()) return found->second;
    if (const auto before = blocks_.find(newest_); before != blocks_.end()) {
      if (before->second.state == State::Open) Miss(before->second, trailer_ + 1, Now());
    }
    newest_ = id;
    order_.push_back(id);
    if (order_.size() > kRemembered) {
      blocks_.erase(order_.front());
      order_.erase(order_.begin());
    }
    return blocks_[id];
  }

  /// Everything from the last packet that came up to `end`.
  void Miss(Block& block, std::uint32_t end, std::int64_t now) {
    for (; block.next < end; ++block.next) {
      block.missing[block.next].since = now;
      ++counts_.missed;
    }
  }

  void TakeNew(Block& block, std::uint32_t id, bool thrown) {
    if (thrown) {
      counts_.thrown += block.state == State::Open;
      return;
    }
    if (block.state == State::Open) Miss(block, id, block.last_came);
    block.next = id + 1;
  }

  void TakeAgain(Block& block, std::uint32_t id, bool thrown, std::int64_t stamp) {
    const auto found = block.missing.find(id);
    if (found == block.missing.end()) {
      ++counts_.twice;
      return;
    }
    ++counts_.again;
    Missing& missing = found->second;
    if (missing.answered < missing.asked) times_.push_back(stamp - missing.asked_at[missing.answered++]);
    if (thrown) return;
    counts_.late += block.state == State::GivenUp;
    block.missing.erase(found);
  }

  void EndWhenWhole(Block& block) {
    if (block.state != State::Open || block.next <= trailer_ || !block.missing.empty()) return;
    block.state = State::Whole;
    ++counts_.whole;
  }

  static bool HasAskedInVain(const Block& block, std::int64_t now) {
    return std::ranges::any_of(block.missing, [now](const auto& each) {
      return each.second.asked == kAsk.size() && each.second.Due() <= now;
    });
  }

  /// Commands for what is due.
  void AskFor(std::uint64_t id, Block& block, std::int64_t now) {
    std::optional<std::uint32_t> first;
    std::uint32_t last = 0;
    for (auto& [packet, missing] : block.missing) {
      if (missing.Due() > now) continue;
      missing.asked_at[missing.asked++] = now;
      ++counts_.asked;
      if (first && packet != last + 1) Ask(id, *std::exchange(first, std::nullopt), last);
      first = first.value_or(packet);
      last = packet;
    }
    if (first) Ask(id, *first, last);
  }

  void Ask(std::uint64_t id, std::uint32_t first, std::uint32_t last) {
    asker_.Ask(id, first, last);
    ++counts_.commands;
  }

  Asker& asker_;
  const std::uint32_t trailer_;
  std::mt19937 dice_;
  std::bernoulli_distribution lost_;
  std::map<std::uint64_t, Block> blocks_;
  std::vector<std::uint64_t> order_;  // of the blocks, oldest first
  std::uint64_t newest_ = 0;
  Counts counts_;
  std::vector<std::int64_t> times_;
};

}  // namespace
}  // namespace Tarn

int main(int argc, char** argv) {
  if (argc != 7) return 2;
  Tarn::Asker asker(argv[1], argv[3]);
  if (!asker.Ok()) {
    std::perror(argv[0]);
    return 1;
  }
  ::prctl(PR_SET_TIMERSLACK, 1);  // requests leave when they are due
  Tarn::ImpatientClient client(asker, static_cast<std::uint32_t>(std::atoi(argv[4])), std::atof(argv[5]),
                               static_cast<unsigned>(std::atoi(argv[6])));
  return Tarn::RunReceiver(argc, argv, Tarn::Stamps::On, client);
}
