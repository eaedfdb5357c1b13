#include "module/image_release.h"

#include "binding/callback.h"
#include "binding/interpreter_lock.h"
#include "binding/wrapper.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

ImageRelease::ImageRelease(PyObject* stream, PyObject* image, PyObject* callable)
    : stream_(PyRef::Share(stream)),
      image_(PyRef::Share(image)),
      id_(reinterpret_cast<std::int64_t>(callable)) {
  MetaOf(stream).callables.Store(kImageRelease, id_, callable);
}

ImageRelease::~ImageRelease() { MetaOf(stream_.Get()).callables.Drop(kImageRelease, id_); }

void ImageRelease::Run(std::unique_ptr<ImageRelease> release) {
  const InterpreterLock lock;
  if (!lock) {
    static_cast<void>(release.release());
    return;
  }
  // Moved here so that it is destroyed before the lock goes back, also when the callable raises.
  const auto owned = std::move(release);
  CallStored(owned->stream_.Get(), kImageRelease, owned->id_, owned->image_.Get());
}

}  // namespace _tarn::gevserver
