#include "binding/callback.h"

#include "binding/errors.h"

namespace Tarn::Binding {
namespace {

/// Shows the pending error through sys.unraisablehook and leaves it pending: it ends in the library's thread,
/// where nobody else would hear of a mistake in a listener.
void ShowPendingError(PyObject* callable) {
  PyObject* error[3] = {};
  PyErr_Fetch(&error[0], &error[1], &error[2]);
  for (PyObject* part : error) Py_XINCREF(part);
  PyErr_Restore(error[0], error[1], error[2]);
  PyErr_WriteUnraisable(callable);
  PyErr_Restore(error[0], error[1], error[2]);
}

}  // namespace

void CallStored(const CallableRegistry& callables, const CallableType& type, std::int64_t id,
                PyObject* argument) {
  const PyRef callable = callables.Find(type, id);
  const PyRef arguments = PyRef::Steal(PyTuple_Pack(1, argument));
  if (!arguments) ThrowPythonError("error in callable");
  const PyRef result = PyRef::Steal(PyObject_CallObject(callable.Get(), arguments.Get()));
  if (!result) {
    ShowPendingError(callable.Get());
    ThrowPythonError(type.failure);
  }
}

}  // namespace Tarn::Binding
