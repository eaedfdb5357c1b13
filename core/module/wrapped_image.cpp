#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "binding/convert.h"
#include "binding/core_values.h"
#include "binding/interpreter_lock.h"
#include "binding/type_builder.h"
#include "core/image.h"
#include "core/module/image_buffer.h"
#include "core/module/no_instances.h"
#include "core/module/type_def.h"

namespace tarn {

using namespace Tarn::Binding;

namespace {

/// The last user of an image may be a thread of the library. Once the interpreter is going the buffer stays
/// exported, and its memory with it.
void ReleaseBuffer(Py_buffer* view) {
  WithInterpreterLock([view] {
    PyBuffer_Release(view);
    delete view;
  });
}

/// On the heap, as some exporters keep pointers into the view itself.
using View = std::unique_ptr<Py_buffer, void (*)(Py_buffer*)>;

View ViewOf(PyObject* object) {
  auto view = std::make_unique<Py_buffer>();
  Checked(PyObject_GetBuffer(object, view.get(), PyBUF_RECORDS_RO));
  return {view.release(), &ReleaseBuffer};
}

Tarn::DataType TypeOf(const Py_buffer& view) {
  const auto type = DataTypeOfFormat(view.format, view.itemsize);
  if (!type) {
    throw std::invalid_argument(
        "samples of format '" + std::string(view.format ? view.format : "B") +
        "' cannot be an image: they must be integers of 8, 16 or 32 bits or floats of 32 "
        "or 64 bits in the machine's byte order");
  }
  return *type;
}

void RequireImageShape(const Py_buffer& view) {
  std::string shape = "(";
  bool empty = false;
  for (int i = 0; i < view.ndim; ++i) {
    shape += (i > 0 ? ", " : "") + std::to_string(view.shape[i]);
    empty = empty || view.shape[i] < 1;
  }
  shape += ")";
  if (view.ndim != 2 && view.ndim != 3) {
    throw std::invalid_argument("a buffer of shape " + shape +
                                " cannot be an image: it must be (height, width) or (height, width, planes)");
  }
  if (empty) throw std::invalid_argument("a buffer of shape " + shape + " cannot be an image: it is empty");
}

/// Bytes from one index to the next in each dimension. Exporters that leave them out (arrays of ctypes do,
/// though they are asked) mean memory without gaps, last index first.
std::array<Py_ssize_t, 3> StridesOf(const Py_buffer& view) {
  std::array<Py_ssize_t, 3> strides{};
  Py_ssize_t stride = view.itemsize;
  for (auto dimension = static_cast<std::size_t>(view.ndim); dimension-- > 0;) {
    strides[dimension] = view.strides ? view.strides[dimension] : stride;
    stride *= view.shape[dimension];
  }
  return strides;
}

std::vector<TRPlaneLayout> PlanesOf(const Py_buffer& view) {
  const std::array<Py_ssize_t, 3> strides = StridesOf(view);
  std::vector<TRPlaneLayout> planes;
  const Py_ssize_t count = view.ndim == 3 ? view.shape[2] : 1;
  for (Py_ssize_t plane = 0; plane < count; ++plane) {
    planes.push_back({static_cast<char*>(view.buf) + plane * strides[2], strides[1], strides[0]});
  }
  return planes;
}

PyRef FromBuffer(PyObject* object, std::optional<PyObject*> color_model) {
  const auto model = ColorModelFrom(color_model.value_or(Py_None));
  View view = ViewOf(object);
  RequireImageShape(*view);
  const bool read_only = view->readonly != 0;
  auto image = Tarn::Image::FromPointer(
      view->shape[1], view->shape[0], TypeOf(*view), PlanesOf(*view),
      [raw = view.get()] { ReleaseBuffer(raw); }, model);
  static_cast<void>(view.release());  // the image releases it from here on
  PyRef wrapper = Bind(TypeObject__WrappedImage__(), std::move(image));
  if (read_only) Attach(wrapper.Get(), std::make_unique<ReadOnlyMemory>());
  return wrapper;
}

}  // namespace

template <>
void TypeDef<WrappedImage>::Init() {
  TypeBuilder(Get(), "tarn.WrappedImage", "Image over the memory of another object.")
      .Base(TypeObject__Image__())
      .Static<Signature<&FromBuffer, "obj", "color_model">>(
          "from_buffer",
          {{.summary = "Wraps the memory of an object with the buffer protocol, without a copy.",
            .description = "The buffer stays exported until the image is gone.",
            .params =
                {{"obj", "object",
                  "Array of shape (height, width) or (height, width, planes), any strides; integers of 8, 16 "
                  "or 32 bits, or floats of 32 or 64 bits."},
                 {"color_model", "Optional[int]",
                  "How the planes make a color (see tarn.ColorModel); by the number of planes if None.",
                  "None"}},
            .returns = {"tarn.WrappedImage", "The image."}}});
  Get().construct = &RefuseNew;
}

}  // namespace tarn
