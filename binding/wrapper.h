#pragma once

/// The Python object behind every type: a thin wrapper that shares a native object.

#include <Python.h>

#include <memory>
#include <stdexcept>
#include <type_traits>

#include "binding/callable_registry.h"
#include "binding/py_ref.h"

namespace Tarn::Binding {

/// What a wrapper knows beside its native object: the callables that wait for the object's events, and, in
/// derived records, the wrappers handed out for the object's children. Made when first needed.
///
/// Its wrapper owns a share; whoever works with it owns another one meanwhile, as anything that can run
/// Python code may end the wrapper. After that the record is retired: empty, and nothing is put into it.
class ObjMeta : public std::enable_shared_from_this<ObjMeta> {
 public:
  ObjMeta() = default;
  virtual ~ObjMeta() = default;
  ObjMeta(const ObjMeta&) = delete;
  ObjMeta& operator=(const ObjMeta&) = delete;

  /// The wrapper goes, or is cut off: lets go of what the record holds for it. Called once.
  virtual void Retire() { callables.Clear(); }

  CallableRegistry callables;

 private:
  friend void Attach(PyObject* wrapper, const std::shared_ptr<ObjMeta>& meta);
  friend void CutOff(PyObject* wrapper);

  std::shared_ptr<ObjMeta> share_of_wrapper_;
};

/// A shared reference to a native object, converted from a pointer to the object's root class (see Held).
using Holder = std::shared_ptr<void>;

/// The layout of all our Python objects. A null holder means that there is no native object: the wrapper was
/// never bound, or it was cut off from its parent. There is no way back.
struct Wrapper {
  PyObject ob_base;
  Holder* holder;
  ObjMeta* meta;
  PyObject* weak_list;
};
static_assert(sizeof(void*) != 8 || (sizeof(Wrapper) == 40 && sizeof(Holder) == 16));

inline Wrapper* AsWrapper(PyObject* object) noexcept { return reinterpret_cast<Wrapper*>(object); }

/// How wrappers hold a native class. Specialise it for classes with a common root (the holder is typed as the
/// root, and extraction casts down at run time) and for plain value records.
template <class T>
struct Held {
  using Root = T;
  static constexpr bool kValue = false;
};

/// Throws the error of a wrapper without (such) a native object.
[[noreturn]] void ThrowGone(bool value);

/// A new wrapper of `type` over the holder.
/// Throws: std::bad_alloc.
PyRef BindHolder(PyTypeObject* type, Holder holder);

/// Fills a wrapper that the interpreter allocated, in a constructor.
/// Requires: not bound yet.
void Adopt(PyObject* wrapper, Holder holder);

template <class T>
Holder MakeHolder(std::shared_ptr<T> native) {
  return std::shared_ptr<typename Held<T>::Root>(std::move(native));
}

/// A new wrapper of `type` for a native object.
template <class T>
PyRef Bind(PyTypeObject* type, std::shared_ptr<T> native) {
  return BindHolder(type, MakeHolder(std::move(native)));
}

/// The native object of a wrapper; the reference keeps it alive while the caller works, even when the wrapper
/// is cut off meanwhile.
/// Requires: the wrapper is an instance of a type that is bound with T's root.
/// Throws: std::runtime_error when there is none, or when it is no T.
template <class T>
std::shared_ptr<T> Extract(PyObject* wrapper) {
  using Root = typename Held<T>::Root;
  const Holder* holder = AsWrapper(wrapper)->holder;
  if (!holder || !*holder) ThrowGone(Held<T>::kValue);
  auto root = std::static_pointer_cast<Root>(*holder);
  if constexpr (std::is_same_v<Root, T>) {
    return root;
  } else {
    auto native = std::dynamic_pointer_cast<T>(std::move(root));
    if (!native) ThrowGone(Held<T>::kValue);
    return native;
  }
}

/// True when the wrapper shares this native object. `native` is a pointer to the root class.
inline bool Holds(PyObject* wrapper, const void* native) noexcept {
  const Holder* holder = AsWrapper(wrapper)->holder;
  return holder && holder->get() == native;
}

/// Gives a wrapper its record.
/// Requires: it has none yet.
void Attach(PyObject* wrapper, const std::shared_ptr<ObjMeta>& meta);

/// The wrapper's record, shared for the time of the caller's work; a bare one is made when there is none.
std::shared_ptr<ObjMeta> MetaOf(PyObject* wrapper);

/// The wrapper's record if it is an M, shared likewise; else null.
template <class M>
std::shared_ptr<M> FindMeta(PyObject* wrapper) {
  ObjMeta* const meta = AsWrapper(wrapper)->meta;
  return meta ? std::dynamic_pointer_cast<M>(meta->shared_from_this()) : nullptr;
}

/// Takes meta record and native object away from a wrapper and leaves the Python object alive but empty.
void CutOff(PyObject* wrapper);

/// The deallocation of every type. The type's own reference is kept on purpose: types live as long as the
/// process.
void Dealloc(PyObject* wrapper);

}  // namespace Tarn::Binding
