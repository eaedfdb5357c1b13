#include "camera/net/datagram_output.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace Tarn {
namespace {

TEST(FitsTrain, HoldsTheKernelsRules) {
  const struct {
    const char* what;
    Train train;
    std::size_t size;
    bool fits;
  } rows[] = {
      {"an empty train takes nothing", {0, 0, 0, 0}, 100, false},
      {"of the same size", {1, 100, 100, 100}, 100, true},
      {"a shorter one ends it", {1, 100, 100, 100}, 99, true},
      {"nothing after a shorter one", {2, 199, 100, 99}, 99, false},
      {"no longer one", {1, 100, 100, 100}, 101, false},
      {"the last segment", {63, 6300, 100, 100}, 100, true},
      {"too many segments", {64, 6400, 100, 100}, 100, false},
      {"just 65507 bytes", {7, 7 * 9358, 9358, 9358}, 1, true},
      {"beyond 65507 bytes", {7, 7 * 9358, 9358, 9358}, 2, false},
  };
  for (const auto& row : rows) EXPECT_EQ(FitsTrain(row.train, row.size, 64), row.fits) << row.what;
  EXPECT_FALSE(FitsTrain({1, 100, 100, 100}, 100, 1)) << "without trains";
}

/// Answers each call with the next entry: messages taken, or a negative errno. Takes everything after the
/// last.
class ScriptedOutput final : public DatagramOutput {
 public:
  explicit ScriptedOutput(std::vector<int> script) : script_(std::move(script)) {}

  int SendMessages(mmsghdr* messages, unsigned count) noexcept override {
    int answer = static_cast<int>(count);
    if (next_ < script_.size()) answer = script_[next_++];
    if (repeat_last && next_ == script_.size()) --next_;
    if (answer < 0) {
      errno = -answer;
      return -1;
    }
    for (int i = 0; i < answer; ++i) taken.push_back(messages[i].msg_hdr.msg_iov[0].iov_len);
    return answer;
  }
  void WaitWritable(std::chrono::microseconds) noexcept override { ++waits; }
  void Pause(std::chrono::microseconds time) noexcept override {
    ++waits;
    longest_pause = std::max(longest_pause, time);
  }
  bool DrainErrors(NetworkReports& counts) noexcept override {
    counts.unreachable += reports > 0;
    return reports-- > 0;
  }

  std::vector<std::size_t> taken;  ///< size of the first piece of each message
  int waits = 0;
  std::chrono::microseconds longest_pause{0};
  int reports = 0;  ///< that wait; errors of the script that they explain are not the datagram's
  bool repeat_last = false;

 private:
  std::vector<int> script_;
  std::size_t next_ = 0;
};

const std::array<std::uint8_t, 100> kBytes{};
const std::atomic<bool> kGoOn{false};

/// Five single datagrams of 1 to 5 bytes.
std::unique_ptr<DatagramBatch> Singles() {
  auto batch = std::make_unique<DatagramBatch>();
  batch->Clear(1);
  for (std::size_t size = 1; size <= 5; ++size) {
    EXPECT_TRUE(batch->Begin(size, 1));
    batch->Add(kBytes.data(), size);
  }
  return batch;
}

TEST(SendBatch, GoesOnAfterWhatTheSystemAnswers) {
  const struct {
    const char* what;
    std::vector<int> script;
    const char* taken;
    int reports, waits;
    std::size_t unreachable, queue_full, refused, too_large;
  } rows[] = {
      {"all at once", {}, "12345", 0, 0, 0, 0, 0, 0},
      {"in parts", {2, 1}, "12345", 0, 0, 0, 0, 0, 0},
      {"full, then not", {2, -EAGAIN, -ENOBUFS, 1}, "12345", 0, 2, 0, 1, 0, 0},
      {"a client that is gone", {-ECONNREFUSED}, "12345", 1, 0, 1, 0, 0, 0},
      {"the same, noticed in between", {1}, "12345", 1, 0, 1, 0, 0, 0},
      {"three reports in a row", {-EHOSTUNREACH, -ECONNREFUSED, -EMSGSIZE}, "12345", 3, 0, 3, 0, 0, 0},
      {"an error whose report was lost", {-ECONNREFUSED}, "12345", 0, 0, 0, 0, 0, 0},
      {"one that cannot be sent", {1, -EPERM}, "1345", 0, 0, 0, 0, 1, 0},
      {"a prohibiting route", {-EACCES, 1, -EACCES}, "245", 0, 0, 0, 0, 2, 0},
      {"one too long", {-EMSGSIZE, -EMSGSIZE}, "2345", 0, 0, 0, 0, 0, 1},
      {"no way at all", std::vector<int>(10, -ENETUNREACH), "", 0, 0, 5, 0, 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    ScriptedOutput output(row.script);
    output.reports = row.reports;
    const BatchResult result = SendBatch(output, *Singles(), kGoOn);
    std::string taken;
    for (const std::size_t size : output.taken) taken += static_cast<char>('0' + size);
    const std::size_t bytes = std::accumulate(output.taken.begin(), output.taken.end(), std::size_t{0});
    EXPECT_EQ(taken, row.taken);
    EXPECT_EQ(result.sent, taken.size());
    EXPECT_EQ(result.sent_bytes, bytes);
    EXPECT_EQ(result.failed, 5 - taken.size());
    EXPECT_EQ(result.failed_bytes, 15 - bytes);
    EXPECT_EQ(output.waits, row.waits);
    EXPECT_EQ(result.unreachable, row.unreachable);
    EXPECT_EQ(result.queue_full, row.queue_full);
    EXPECT_EQ(result.refused, row.refused);
    EXPECT_EQ(result.too_large, row.too_large);
  }
}

TEST(SendBatch, WaitsWhileSomethingMovesAndNotForEver) {
  for (const int error : {EAGAIN, ENOBUFS, ECONNREFUSED, EINTR}) {
    ScriptedOutput stuck({-error});
    stuck.repeat_last = true;
    stuck.reports = 1000;
    EXPECT_EQ(SendBatch(stuck, *Singles(), kGoOn).failed, 5u) << error;
    EXPECT_LE(stuck.waits, 40) << error;
    EXPECT_LE(stuck.longest_pause, std::chrono::milliseconds(5)) << error;

    // Nearly as long for each datagram as the stuck one waits for all.
    std::vector<int> slow;
    for (int i = 0; i < 5; ++i) {
      slow.insert(slow.end(), error == EAGAIN || error == ENOBUFS ? 20 : 2, -error);
      slow.push_back(1);
    }
    ScriptedOutput moving(slow);
    moving.reports = 1000;
    EXPECT_EQ(SendBatch(moving, *Singles(), kGoOn).sent, 5u) << error;
  }
  const std::atomic<bool> stop{true};
  ScriptedOutput output({});
  EXPECT_EQ(SendBatch(output, *Singles(), stop).sent, 0u);
}

TEST(SendBatch, LeavesATrainThatWasNotTakenToTheCaller) {
  for (const int error : {EIO, EINVAL, EOPNOTSUPP, EMSGSIZE, ENOBUFS}) {
    DatagramBatch batch;
    batch.Clear(Train::kMaxSegments);
    for (const std::size_t size : {5u, 10u, 10u, 10u, 3u}) {  // a leader, and a train that the short one ends
      ASSERT_TRUE(batch.Begin(size, 1));
      batch.Add(kBytes.data(), size);
    }
    ASSERT_EQ(batch.MessageCount(), 2u);
    ScriptedOutput output({1, -error, -error});
    const BatchResult result = SendBatch(output, batch, kGoOn);
    EXPECT_EQ(result.train_refused, error != ENOBUFS) << error;
    EXPECT_EQ(result.queue_full, error == ENOBUFS ? 1u : 0u) << error;
    EXPECT_EQ(result.sent, 1u) << error;
    EXPECT_EQ(result.failed, 0u) << error;
  }
}

TEST(DatagramBatch, SaysWhenItIsFull) {
  DatagramBatch batch;
  batch.Clear(1);
  std::size_t messages = 0;
  while (batch.Begin(1, 1)) {
    batch.Add(kBytes.data(), 1);
    ++messages;
  }
  EXPECT_EQ(messages, DatagramBatch::kMaxMessages);

  batch.Clear(Train::kMaxSegments);
  std::size_t pieces = 0;
  while (batch.Begin(100, 50)) {
    for (int i = 0; i < 50; ++i) batch.Add(kBytes.data(), 2);
    pieces += 50;
  }
  EXPECT_LE(pieces, DatagramBatch::kMaxPieces);
  EXPECT_GE(pieces, DatagramBatch::kMaxPieces - 50);
}

}  // namespace
}  // namespace Tarn
