#include "module/image_release.h"

#include <utility>

#include "binding/callback.h"
#include "binding/interpreter_lock.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

ImageRelease::ImageRelease(PyObject* stream, PyObject* image, PyObject* callable)
    : stream_(MetaOf(stream)), image_(PyRef::Share(image)), id_(reinterpret_cast<std::int64_t>(callable)) {
  stream_->callables.Store(kImageRelease, id_, callable);
}

ImageRelease::~ImageRelease() { stream_->callables.Drop(kImageRelease, id_); }

void ImageRelease::Run(std::unique_ptr<ImageRelease> release) {
  // Given over inside, so that it is destroyed before the lock goes back, also when the callable raises.
  const bool ran = WithInterpreterLock([&release] {
    const auto owned = std::move(release);
    CallStored(owned->stream_->callables, kImageRelease, owned->id_, owned->image_.Get());
  });
  if (!ran) static_cast<void>(release.release());
}

}  // namespace _tarn::gevserver
