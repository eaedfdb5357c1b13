#include "camera/net/datagram_output.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <memory>
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
  void WaitWritable(std::chrono::milliseconds) noexcept override { ++waits; }

  std::vector<std::size_t> taken;  ///< size of the first piece of each message
  int waits = 0;
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
    std::size_t sent, failed;
    int waits;
    std::vector<std::size_t> taken;
  } rows[] = {
      {"all at once", {}, 5, 0, 0, {1, 2, 3, 4, 5}},
      {"in parts", {2, 1}, 5, 0, 0, {1, 2, 3, 4, 5}},
      {"socket full, then not", {2, -EAGAIN, -ENOBUFS, 1}, 5, 0, 2, {1, 2, 3, 4, 5}},
      {"a client that is gone", {1, -ECONNREFUSED}, 5, 0, 0, {1, 2, 3, 4, 5}},
      {"one that cannot be sent", {1, -EPERM}, 4, 1, 0, {1, 3, 4, 5}},
      {"one too long", {-EMSGSIZE}, 4, 1, 0, {2, 3, 4, 5}},
      {"no way at all", {-ENETUNREACH, -ENETUNREACH, -ENETUNREACH, -ENETUNREACH, -ENETUNREACH}, 0, 5, 0, {}},
  };
  for (const auto& row : rows) {
    ScriptedOutput output(row.script);
    const auto batch = Singles();
    const BatchResult result = SendBatch(output, *batch, kGoOn);
    EXPECT_EQ(result.sent, row.sent) << row.what;
    EXPECT_EQ(result.failed, row.failed) << row.what;
    EXPECT_EQ(output.waits, row.waits) << row.what;
    EXPECT_EQ(output.taken, row.taken) << row.what;
  }
}

TEST(SendBatch, EndsAlthoughTheSocketStaysFullOrBroken) {
  for (const int error : {EAGAIN, ENOBUFS, ECONNREFUSED, EINTR}) {
    ScriptedOutput output({-error});
    output.repeat_last = true;
    const auto batch = Singles();
    const BatchResult result = SendBatch(output, *batch, kGoOn);
    EXPECT_EQ(result.failed, 5u) << error;
    EXPECT_EQ(result.unreachable != 0, error == ECONNREFUSED) << error;
    EXPECT_LE(output.waits, 100) << error;
  }
  const std::atomic<bool> stop{true};
  ScriptedOutput output({});
  const auto batch = Singles();
  EXPECT_EQ(SendBatch(output, *batch, stop).sent, 0u);
}

TEST(SendBatch, ReportsARefusedTrainAndLosesNothingOfIt) {
  for (const int error : {EIO, EINVAL, EOPNOTSUPP, EMSGSIZE}) {
    DatagramBatch batch;
    batch.Clear(Train::kMaxSegments);
    for (const std::size_t size : {5u, 10u, 10u, 10u, 3u}) {  // a leader, and a train that the short one ends
      ASSERT_TRUE(batch.Begin(size, 1));
      batch.Add(kBytes.data(), size);
    }
    ASSERT_EQ(batch.MessageCount(), 2u);
    ScriptedOutput output({1, -error});
    const BatchResult result = SendBatch(output, batch, kGoOn);
    EXPECT_TRUE(result.train_refused) << error;
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
