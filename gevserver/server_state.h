#pragma once

/// The state of a server, as calls and the library's events drive it.

#include <atomic>
#include <cstdint>

namespace Tarn::GevServer {

/// Codes of the states.
namespace State {
inline constexpr std::int32_t Configuration = 0;
inline constexpr std::int32_t Disconnected = 1;
inline constexpr std::int32_t Connected = 2;
inline constexpr std::int32_t AcquisitionEnabled = 3;
}  // namespace State

namespace Private {

/// One state word.
///
///   | state         | BeginStart | StartSucceeded | StartFailed   | event       | Stopped       |
///   |---------------+------------+----------------+---------------+-------------+---------------|
///   | Configuration | Starting   | -              | -             | -           | Configuration |
///   | Starting      | -          | Disconnected   | Configuration | event's     | Configuration |
///   | any other     | -          | -              | -             | event's     | Configuration |
///
/// Starting is told as Configuration. It is there because the first client may connect before the call that
/// starts the library has returned, and because an event on its way while a callback stops the server must
/// not undo that.
/// Threads: any thread.
class ServerState {
 public:
  /// State code.
  std::int32_t Code() const noexcept;

  void BeginStart() noexcept { Change(State::Configuration, kStarting); }
  void StartSucceeded() noexcept { Change(kStarting, State::Disconnected); }
  void StartFailed() noexcept { Change(kStarting, State::Configuration); }
  void Stopped() noexcept { word_ = State::Configuration; }

  /// An event of the library.
  /// \param state  state code that it leads to
  void Event(std::int32_t state) noexcept;

 private:
  static constexpr std::int32_t kStarting = -1;

  void Change(std::int32_t from, std::int32_t to) noexcept { word_.compare_exchange_strong(from, to); }

  std::atomic<std::int32_t> word_ = State::Configuration;  // written by calls and by event callbacks
};

}  // namespace Private
}  // namespace Tarn::GevServer
