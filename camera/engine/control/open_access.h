#pragma once

/// What anybody may ask without control, and how often: discoveries and reads.

#include <chrono>
#include <cstdint>
#include <random>

#include "camera/engine/control/source_budget.h"

namespace Tarn {

/// Discoveries and memory reads are the commands with long answers that the standard opens to everybody, so
/// they are what a forger of source addresses would use. And each register that is read costs the device work,
/// which the client in control has to wait for. They stay open, within these bounds for each address:
///
///   | what is counted        | answer / question | at once        | then           | why so much             |
///   |------------------------+-------------------+----------------+----------------+-------------------------|
///   | discoveries            | 256 / 8 bytes     | 64             | 50 per second  | some viewers, each with |
///   |                        |                   |                |                | several in a second     |
///   | bytes read from memory | 548 / 16 bytes    | 8 MB in excess | 1 MB/s         | monitors load the XML   |
///   | registers read         | as long           | 200,000        | 100,000 per s  | monitors poll all that  |
///   |                        |                   |                |                | there are               |
///
/// The client in control is not counted. It may have the whole stream sent to its address, so a forger who
/// took control in somebody's name would not need the answers.
///
/// Threads: one at a time.
class OpenAccess {
 public:
  /// \param secret  random; decides about shared budgets and about delays
  explicit OpenAccess(std::uint64_t secret)
      : discoveries_(64, std::chrono::milliseconds(20), secret),
        excess_bytes_(8'000'000, std::chrono::microseconds(1), secret),
        registers_(200'000, std::chrono::microseconds(10), secret),
        random_(secret) {}

  bool AdmitsDiscovery(std::uint32_t source, Instant now) { return discoveries_.Take(source, 1, now); }
  /// \param excess     bytes by which the answer will be longer than the question
  /// \param registers  that will be read
  bool AdmitsRead(std::uint32_t source, std::uint32_t excess, std::uint32_t registers, Instant now) {
    return registers_.Has(source, registers, now) && excess_bytes_.Take(source, excess, now) &&
           registers_.Take(source, registers, now);
  }

  /// A random wait, so that many devices do not answer one broadcast at the same moment.
  std::chrono::milliseconds Delay(std::uint32_t max_ms) {
    return std::chrono::milliseconds(std::uniform_int_distribution<std::uint32_t>(0, max_ms)(random_));
  }

 private:
  SourceBudget discoveries_;
  SourceBudget excess_bytes_;
  SourceBudget registers_;
  std::mt19937_64 random_;
};

}  // namespace Tarn
