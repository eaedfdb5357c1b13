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

}  // namespace Tarn
