#pragma once

/// Types whose objects only come from functions.

#include <Python.h>

namespace tarn {

/// A constructor that refuses with TypeError.
inline PyObject* RefuseNew(PyTypeObject* type, PyObject*, PyObject*) {
  return PyErr_Format(PyExc_TypeError, "%R has no public constructor", type);
}

}  // namespace tarn
