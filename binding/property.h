#pragma once

/// Getter and setter functions made from native accessors.

#include <Python.h>

#include "binding/convert.h"
#include "binding/errors.h"
#include "binding/function_traits.h"

namespace Tarn::Binding {

/// Extracts the native object, calls the accessor, converts its result.
template <auto Get>
PyObject* PropertyGet(PyObject* self, void*) {
  return Guarded<PyObject*>(nullptr, [self] {
    return Receiver<ParamOf<Get, 0>>::Call(self, [](auto&& native) {
      return ToPython<std::remove_cvref_t<ResultOf<Get>>>(std::invoke(Get, native)).Release();
    });
  });
}

/// Refuses deletion, converts the value, extracts the native object, calls the mutator.
template <auto Set>
int PropertySet(PyObject* self, PyObject* value, void*) {
  return Guarded(-1, [self, value] {
    if (!value) {
      PyErr_SetString(PyExc_AttributeError, "attribute cannot be deleted");
      throw PresetError();
    }
    auto converted = FromPython<std::remove_cvref_t<ParamOf<Set, 1>>>(value);
    Receiver<ParamOf<Set, 0>>::Call(self,
                                    [&](auto&& native) { std::invoke(Set, native, std::move(converted)); });
    return 0;
  });
}

}  // namespace Tarn::Binding
