#pragma once

/// Shape and strides of an exported buffer, kept in the view while it is in use.

#include <Python.h>

#include <vector>

namespace Tarn::Binding {

struct BufferView {
  std::vector<Py_ssize_t> shape;
  std::vector<Py_ssize_t> strides;
};

}  // namespace Tarn::Binding
