#include "binding/py_ref.h"

#include <cxxabi.h>

#include "binding/interpreter_end.h"

namespace Tarn::Binding {

void PyRef::Drop(PyObject* object) noexcept {
  if (InterpreterEndedForThisThread()) return;
  try {
    Py_DECREF(object);
  } catch (const abi::__forced_unwind&) {
    ParkThread();
  }
}

}  // namespace Tarn::Binding
