#pragma once

/// Native exceptions for the failure codes of the libraries.

#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "gevserver/library/tr_status.h"

namespace Tarn {

/// A library failure without a standard kind; carries the library's code.
class TarnException : public std::runtime_error {
 public:
  TarnException(const std::string& message, TR_STATUS code) : std::runtime_error(message), code_(code) {}

  /// The library's code, negative for failures (see tr_status.h).
  TR_STATUS Code() const noexcept { return code_; }

 private:
  TR_STATUS code_;
};

/// A failure whose text is fixed, with the reason behind it for whoever reads a traceback.
class ReasonedError : public std::runtime_error {
 public:
  ReasonedError(const std::string& message, std::string reason)
      : std::runtime_error(message), reason_(std::move(reason)) {}

  /// Empty when none is known.
  const std::string& Reason() const noexcept { return reason_; }

 private:
  std::string reason_;
};

/// The exception that stands for a library code, not thrown yet: the kind from the table of codes, else a
/// TarnException. Lack of memory carries no message.
std::exception_ptr ExceptionForStatus(TR_STATUS status, const std::string& message);

/// Throws what ExceptionForStatus makes.
[[noreturn]] void ThrowStatus(TR_STATUS status, const std::string& message);

}  // namespace Tarn
