#pragma once

/// One image on its way: the Python callback that is told when the library needs it no more.

#include <Python.h>

#include <cstdint>
#include <memory>

#include "binding/py_ref.h"
#include "binding/wrapper.h"

namespace _tarn::gevserver {

/// Keeps the image object alive until the release, and one use of the callable in the stream's registry,
/// which it shares: the callback is told also when the stream and its server went first. A callable's
/// identity is its id there.
///
/// Made and abandoned under the interpreter lock; Run comes from any thread, once, and destroys the object.
class ImageRelease {
 public:
  /// Stores the callable in the registry.
  ImageRelease(PyObject* stream, PyObject* image, PyObject* callable);
  ~ImageRelease();
  ImageRelease(const ImageRelease&) = delete;
  ImageRelease& operator=(const ImageRelease&) = delete;

  /// Calls the callable with the image object. Once the interpreter is going nothing is called, and what
  /// `release` holds is left to the process' end.
  /// Throws: the native kind of what the callable raised.
  static void Run(std::unique_ptr<ImageRelease> release);

 private:
  const std::shared_ptr<Tarn::Binding::ObjMeta> stream_;
  const Tarn::Binding::PyRef image_;
  const std::int64_t id_;
};

}  // namespace _tarn::gevserver
