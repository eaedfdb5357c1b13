#pragma once

/// What stands around the body of every C entry point.

#include <system_error>

#include <new>
#include <string>
#include <utility>

#include "camera/base/engine_error.h"
#include "gevserver/library/tr_status.h"
#include "gevserver/library/tr_utilities.h"

namespace Tarn {

/// Runs `body` and turns what it throws into a status and a text, which `report(status, text)` receives.
template <class Report, class Body>
TR_STATUS ReportingEntry(Report report, Body&& body) noexcept {
  const auto fail = [&report](TR_STATUS status, const char* text) {
    report(status, text);
    return status;
  };
  try {
    std::forward<Body>(body)();
    return TR_OK;
  } catch (const EngineError& e) {
    return fail(e.status(), e.what());
  } catch (const std::bad_alloc&) {
    return fail(TR_E_NO_MEMORY, "out of memory");
  } catch (const std::system_error& e) {
    return fail(TR_E_SYSTEM, e.what());
  } catch (const std::exception& e) {
    return fail(TR_E_INTERNAL, e.what());
  } catch (...) {
    return fail(TR_E_INTERNAL, "unknown failure");
  }
}

/// Runs the body of one C entry point; nothing leaves it but a status. A failure's text becomes the calling
/// thread's last error.
template <class Body>
TR_STATUS Entry(Body&& body) noexcept {
  return ReportingEntry(TRCSetLastError, std::forward<Body>(body));
}

/// As Entry, for the calls that fetch the last error: their own failure must not replace it.
template <class Body>
TR_STATUS EntryKeepingLastError(Body&& body) noexcept {
  return ReportingEntry([](TR_STATUS, const char*) {}, std::forward<Body>(body));
}

/// As Entry, for creators: the handle that `body` returns, null when it failed.
template <class Body>
TR_HANDLE HandleEntry(Body&& body) noexcept {
  TR_HANDLE handle = nullptr;
  return Entry([&] { handle = std::forward<Body>(body)(); }) == TR_OK ? handle : nullptr;
}

/// The target of an output argument.
/// Throws: EngineError(kInvalidArgument) naming `argument` when it is null.
template <class T>
T& Output(T* target, const char* argument) {
  if (target == nullptr) {
    throw EngineError(Failure::kInvalidArgument, std::string(argument) + " must not be null");
  }
  return *target;
}

// One table of codes on each side of the C line: a number that differs is caught here.
#define TARN_SAME_CODE(failure, code) static_assert(static_cast<TR_STATUS>(Failure::failure) == (code))
TARN_SAME_CODE(kFailed, TR_E_FAILED);
TARN_SAME_CODE(kInvalidArgument, TR_E_INVALID_ARGUMENT);
TARN_SAME_CODE(kInvalidHandle, TR_E_INVALID_HANDLE);
TARN_SAME_CODE(kInternal, TR_E_INTERNAL);
TARN_SAME_CODE(kNoMemory, TR_E_NO_MEMORY);
TARN_SAME_CODE(kOutOfRange, TR_E_OUT_OF_RANGE);
TARN_SAME_CODE(kWrongState, TR_E_WRONG_STATE);
TARN_SAME_CODE(kNotFound, TR_E_NOT_FOUND);
TARN_SAME_CODE(kBusy, TR_E_BUSY);
TARN_SAME_CODE(kSystem, TR_E_SYSTEM);
TARN_SAME_CODE(kBufferTooSmall, TR_E_BUFFER_TOO_SMALL);
TARN_SAME_CODE(kAccess, TR_E_ACCESS);
TARN_SAME_CODE(kNotSupported, TR_E_NOT_SUPPORTED);
TARN_SAME_CODE(kNoValue, TR_E_NO_VALUE);
TARN_SAME_CODE(kNoStream, TR_E_NO_STREAM);
TARN_SAME_CODE(kExists, TR_E_EXISTS);
TARN_SAME_CODE(kIncrement, TR_E_INCREMENT);
TARN_SAME_CODE(kFormula, TR_E_FORMULA);
TARN_SAME_CODE(kText, TR_E_TEXT);
TARN_SAME_CODE(kName, TR_E_NAME);
TARN_SAME_CODE(kCycle, TR_E_CYCLE);
TARN_SAME_CODE(kAddress, TR_E_ADDRESS);
TARN_SAME_CODE(kOverflow, TR_E_OVERFLOW);
#undef TARN_SAME_CODE

}  // namespace Tarn
