#include "binding/callback.h"

#include "binding/errors.h"
#include "binding/wrapper.h"

namespace Tarn::Binding {
namespace {

/// Shows the pending error through sys.unraisablehook and leaves it pending: it ends in the library's thread,
/// where nobody else would hear of a mistake in a listener.
void ShowPendingError(PyObject* callable) noexcept {
  PyObject* error[3] = {};
  PyErr_Fetch(&error[0], &error[1], &error[2]);
  for (PyObject* part : error) Py_XINCREF(part);
  PyErr_Restore(error[0], error[1], error[2]);
  PyErr_WriteUnraisable(callable);
  PyErr_Restore(error[0], error[1], error[2]);
}

}  // namespace

void CallStored(PyObject* wrapper, const CallableType& type, std::int64_t id, PyObject* argument) {
  // A wrapper that was cut off has lost its record; the look-up below then says so.
  const PyRef callable = MetaOf(wrapper).callables.Find(type, id);
  const PyRef arguments = PyRef::Steal(PyTuple_Pack(1, argument));
  if (!arguments) ThrowPythonError("error in callable");
  const PyRef result = PyRef::Steal(PyObject_CallObject(callable.Get(), arguments.Get()));
  if (!result) {
    ShowPendingError(callable.Get());
    ThrowPythonError(type.failure);
  }
}

}  // namespace Tarn::Binding
