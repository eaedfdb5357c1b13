#pragma once

/// From a native event to the Python callable that waits for it.

#include <Python.h>

#include <cstdint>

#include "binding/callable_registry.h"

namespace Tarn::Binding {

/// Calls the callable stored under (type, id) with one argument and drops its result.
/// Requires: the interpreter lock held; `argument` alive.
/// Throws: what the registry throws, or the native kind of the exception that the callable raised.
void CallStored(const CallableRegistry& callables, const CallableType& type, std::int64_t id,
                PyObject* argument);

}  // namespace Tarn::Binding
