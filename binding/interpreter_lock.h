#pragma once

/// Taking and giving away the interpreter lock, and the gate that keeps the library's threads out of a dying
/// interpreter.
///
/// Functions and no scope guards: a thread that the interpreter unwinds at its end
/// (binding/interpreter_end.h) holds no lock that a destructor could give back. A thread of the library
/// passes the gate before it asks for the lock; an exit hook closes it ahead of finalisation.

#include <Python.h>

#include <cxxabi.h>

#include <exception>
#include <functional>

#include "binding/interpreter_end.h"

namespace Tarn::Binding {

namespace Private {
/// False once the gate is closed. Else the lock is held, which Leave gives back.
bool EnterInterpreter(PyGILState_STATE& state);
void LeaveInterpreter(PyGILState_STATE state);
}  // namespace Private

/// Runs `body` with the interpreter lock held, on any thread, also one that holds it already. To the library
/// this is the end of the line: a thread that the interpreter gives up stays here for ever, and nobody waits
/// for it then.
/// \return false when the interpreter is on its way out; `body` has not run
/// Throws: the std::exception that `body` throws.
template <class Body>
bool WithInterpreterLock(Body&& body) {
  try {
    PyGILState_STATE state{};
    if (!Private::EnterInterpreter(state)) return false;
    std::exception_ptr failure;
    try {
      body();
    } catch (const std::exception&) {
      failure = std::current_exception();
    }
    Private::LeaveInterpreter(state);
    if (failure) std::rethrow_exception(failure);
    return true;
  } catch (const abi::__forced_unwind&) {
    ParkThread();
  }
}

/// Runs `body` without the interpreter lock.
/// Requires: the lock held by this thread.
/// Throws: the std::exception that `body` throws.
template <class Body>
void WithoutInterpreterLock(Body&& body) {
  PyThreadState* const thread = PyEval_SaveThread();
  std::exception_ptr failure;
  try {
    body();
  } catch (const std::exception&) {
    failure = std::current_exception();
  }
  PyEval_RestoreThread(thread);
  if (failure) std::rethrow_exception(failure);
}

/// False in a subinterpreter.
/// Requires: the interpreter lock held.
bool InMainInterpreter();

inline constexpr const char* kMainInterpreterOnly =
    "tarn works in the main interpreter only, not in a subinterpreter";

/// Throws PresetError with an ImportError set in a subinterpreter: callbacks and the exit hook belong to the
/// main one.
void RequireMainInterpreterForImport();

/// Registers an exit hook with the interpreter: runs `before_closing` without the interpreter lock, then
/// closes the gate and waits a moment for threads inside. A callback that runs longer is left behind.
/// Registers what a forked child needs as well: there the gate is as in a process without other threads. Once
/// per extension module, at its import.
/// Throws: PresetError when the hook cannot be registered, std::system_error when the handlers of a fork
/// cannot.
void GuardInterpreterEnd(std::function<void()> before_closing);

}  // namespace Tarn::Binding
