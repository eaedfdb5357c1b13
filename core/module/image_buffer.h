#pragma once

/// Images as buffers: the export of their pixels to Python, and what images over Python memory share with it.

#include <Python.h>

#include <optional>

#include "binding/wrapper.h"
#include "core/color_model.h"
#include "core/data_type.h"

namespace tarn {

/// Record of an image over memory that must not be written.
class ReadOnlyMemory : public Tarn::Binding::ObjMeta {};

/// Shape (height, width) for one plane, else (height, width, planes); the planes must lie at equal distances.
/// Sets BufferError when the image has no such layout, or not the one that the flags ask for.
int GetImageBuffer(PyObject* self, Py_buffer* view, int flags);

/// The data type of a buffer's samples; nothing for formats that images do not have.
/// \param format  as in the struct module; null means unsigned bytes
std::optional<Tarn::DataType> DataTypeOfFormat(const char* format, Py_ssize_t item_size) noexcept;

/// An int, or None.
/// Throws: std::invalid_argument for an int that is no colour model.
std::optional<Tarn::ColorModel> ColorModelFrom(PyObject* object);

}  // namespace tarn
