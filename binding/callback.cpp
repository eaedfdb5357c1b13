#include "binding/callback.h"

#include "binding/errors.h"
#include "binding/wrapper.h"

namespace Tarn::Binding {

void CallStored(PyObject* wrapper, const CallableType& type, std::int64_t id, PyObject* argument) {
  // A wrapper that was cut off has lost its record; the look-up below then says so.
  const PyRef callable = MetaOf(wrapper).callables.Find(type, id);
  const PyRef arguments = PyRef::Steal(PyTuple_Pack(1, argument));
  if (!arguments) ThrowPythonError("error in callable");
  const PyRef result = PyRef::Steal(PyObject_CallObject(callable.Get(), arguments.Get()));
  if (!result) ThrowPythonError(type.failure);
}

}  // namespace Tarn::Binding
