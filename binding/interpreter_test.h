#pragma once

/// An interpreter for tests: started once, its lock held by the thread that runs the tests.

#include <Python.h>

namespace Tarn::Testing {

/// Call it first in a test that touches Python.
inline void NeedInterpreter() {
  if (!Py_IsInitialized()) Py_InitializeEx(0);
}

}  // namespace Tarn::Testing
