#pragma once

/// Failures on the way from the engine to a C entry point.

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Tarn {

/// Why a call was refused.
/// Source: the values are those of the C interface's TR_E_ codes, and capi/ asserts that they agree. They
/// stand here a second time because nothing below capi/ may include the C headers.
enum class Failure : std::int32_t {
  kFailed = INT32_MIN + 0x01,
  kInvalidArgument = INT32_MIN + 0x02,
  kInvalidHandle = INT32_MIN + 0x03,
  kInternal = INT32_MIN + 0x04,
  kNoMemory = INT32_MIN + 0x05,
  kOutOfRange = INT32_MIN + 0x06,
  kWrongState = INT32_MIN + 0x07,
  kNotFound = INT32_MIN + 0x08,
  kBusy = INT32_MIN + 0x0B,
  kSystem = INT32_MIN + 0x0C,
  kBufferTooSmall = INT32_MIN + 0x0D,
  kAccess = INT32_MIN + 0x12,
  kNotSupported = INT32_MIN + 0x13,
  kNoValue = INT32_MIN + 0x16,
  kNoStream = INT32_MIN + 0x18,
  kExists = INT32_MIN + 0x22,
  kIncrement = INT32_MIN + 0x23,
  kFormula = INT32_MIN + 0x24,
  kText = INT32_MIN + 0x25,
  kName = INT32_MIN + 0x26,
  kCycle = INT32_MIN + 0x28,
  kAddress = INT32_MIN + 0x29,
  kOverflow = INT32_MIN + 0x2B,
};

/// A refusal with its reason, thrown by set-up code and turned into a status at the C entry point.
class EngineError : public std::runtime_error {
 public:
  /// \param text  what was wrong, and with which node or argument; becomes the caller's last-error text
  EngineError(Failure failure, const std::string& text) : std::runtime_error(text), failure_(failure) {}

  Failure failure() const noexcept { return failure_; }
  std::int32_t status() const noexcept { return static_cast<std::int32_t>(failure_); }

 private:
  Failure failure_;
};

}  // namespace Tarn
