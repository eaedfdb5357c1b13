#pragma once

/// From a native event to the Python callable that waits for it.

#include <Python.h>

#include <cstdint>

#include "binding/callable_registry.h"

namespace Tarn::Binding {

/// Calls the callable stored under (type, id) in the wrapper's registry with one argument and drops its
/// result. Requires: the interpreter lock held; `wrapper` and `argument` alive. Throws: what the registry
/// throws, or the native kind of the exception that the callable raised.
void CallStored(PyObject* wrapper, const CallableType& type, std::int64_t id, PyObject* argument);

}  // namespace Tarn::Binding
