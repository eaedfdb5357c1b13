#include "binding/wrapper.h"

#include <new>
#include <utility>

namespace Tarn::Binding {

void ThrowGone(bool value) {
  throw std::runtime_error(value ? "failed to extract type - pointer is null"
                                 : "failed to extract type -  resource might be gone");
}

PyRef BindHolder(PyTypeObject* type, Holder holder) {
  auto owned = std::make_unique<Holder>(std::move(holder));
  void* memory = PyObject_Calloc(1, sizeof(Wrapper));
  if (!memory) throw std::bad_alloc();
  PyObject* object = PyObject_Init(static_cast<PyObject*>(memory), type);
  AsWrapper(object)->holder = owned.release();
  return PyRef::Steal(object);
}

void Adopt(PyObject* wrapper, Holder holder) { AsWrapper(wrapper)->holder = new Holder(std::move(holder)); }

void Attach(PyObject* wrapper, const std::shared_ptr<ObjMeta>& meta) {
  AsWrapper(wrapper)->meta = meta.get();
  meta->share_of_wrapper_ = meta;
}

std::shared_ptr<ObjMeta> MetaOf(PyObject* wrapper) {
  auto* self = AsWrapper(wrapper);
  if (!self->meta) Attach(wrapper, std::make_shared<ObjMeta>());
  return self->meta->shared_from_this();
}

void CutOff(PyObject* wrapper) {
  auto* self = AsWrapper(wrapper);
  // The fields are emptied first: what goes may run Python code that comes back to this wrapper.
  const std::unique_ptr<Holder> holder(std::exchange(self->holder, nullptr));
  if (ObjMeta* const meta = std::exchange(self->meta, nullptr)) {
    const auto record = std::move(meta->share_of_wrapper_);
    record->Retire();
  }
}

void Dealloc(PyObject* wrapper) {
  CutOff(wrapper);
  if (AsWrapper(wrapper)->weak_list) {
    PyObject_ClearWeakRefs(wrapper);
    AsWrapper(wrapper)->weak_list = nullptr;
  }
  if (PyType_GetFlags(Py_TYPE(wrapper)) & Py_TPFLAGS_HAVE_GC) {
    PyObject_GC_Del(wrapper);
  } else {
    PyObject_Free(wrapper);
  }
}

}  // namespace Tarn::Binding
