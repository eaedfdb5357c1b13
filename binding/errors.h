#pragma once

/// Failures on their way between native code and Python, in both directions.

#include <Python.h>

#include <exception>
#include <stdexcept>
#include <string>

#include "binding/py_ref.h"

namespace Tarn::Binding {

/// The Python error indicator is already set by a failed interpreter call: unwind and report failure.
class PresetError : public std::exception {};

/// No signature of a method fits the arguments of a call.
class OverloadParseError : public std::invalid_argument {
 public:
  OverloadParseError();
};

/// Takes over the result of an interpreter call.
/// Throws: PresetError when the call failed.
inline PyRef Checked(PyObject* result) {
  if (!result) throw PresetError();
  return PyRef::Steal(result);
}

/// Throws PresetError when an interpreter call that returns a status failed.
inline void Checked(int status) {
  if (status < 0) throw PresetError();
}

/// Throws the mismatch error for a value that is no `type_name` ("int", "tarn.Size2D", ...).
[[noreturn]] void ThrowMismatch(const char* type_name);

/// Turns the pending Python error into the native exception of its kind and clears it: ValueError,
/// RuntimeError, IndexError, OverflowError, MemoryError, subclasses included; the rest become runtime errors.
/// Without a pending error, or without a text, a runtime error with the fallback text.
[[noreturn]] void ThrowPythonError(const char* fallback);

/// Sets the Python error that belongs to a native exception; a PresetError keeps the pending one.
void SetPythonError(const std::exception_ptr& caught);

/// Runs an interpreter-facing body; when it throws, returns `failure` with a Python error set. What is no
/// std::exception is a bug that nobody above catches: it ends the process. Not noexcept, and no catch-all:
/// the interpreter may unwind the thread through here at its end.
template <class Failure, class Body>
Failure Guarded(Failure failure, Body&& body) {
  std::exception_ptr caught;
  try {
    return body();
  } catch (const std::exception&) {
    caught = std::current_exception();
  }
  SetPythonError(caught);  // outside the try: what the body owned is gone by now
  return failure;
}

}  // namespace Tarn::Binding
