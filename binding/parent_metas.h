#pragma once

/// The records of wrappers that hand out child wrappers, and the register of native objects that have one.
///
/// A parent's record keeps one native object from getting a second wrapper, and cuts its children off when
/// the parent goes: a child that outlives it must not reach what the library has released.
/// Threads: with the interpreter lock held.

#include <Python.h>

#include <map>
#include <string>
#include <vector>

#include "binding/convert.h"
#include "binding/errors.h"
#include "binding/py_ref.h"
#include "binding/wrapper.h"

namespace Tarn::Binding {

/// The live wrapper of a native object, by the address of its root class; empty when it has none. The wrapper
/// shares the object, so the address is not used again while the entry stands.
PyRef LiveWrapper(const void* native);

/// Record of a wrapper that is found by its native object.
class RegisteredMeta : public ObjMeta {
 public:
  /// Requires: `native` has no live wrapper yet, and `wrapper` will own this record.
  RegisteredMeta(const void* native, PyObject* wrapper);

  void Retire() override;

 private:
  const void* const native_;
};

/// Of a stream. Images on their way hold it too, and find their release callbacks here when the stream is
/// gone.
class StreamMeta : public ObjMeta {
 public:
  void Retire() override {}
};

/// Of a node.
class NodeMeta : public RegisteredMeta {
 public:
  using RegisteredMeta::RegisteredMeta;
};

/// Of a server: the one node map and the one stream that it hands out, for its whole life.
class ServerMeta : public ObjMeta {
 public:
  void Retire() override;

  PyRef node_map;
  PyRef stream;  ///< empty for a server without a stream
};

/// Of a node map: which node wrappers are out, by full name, and the dictionary of all nodes while someone
/// holds it.
class NodeMapMeta : public RegisteredMeta {
 public:
  /// A node as this record knows it. Entries of different enumerations may share a name.
  struct NamedNode {
    std::string full_name;
    const void* native;
  };

  using RegisteredMeta::RegisteredMeta;

  void Retire() override;

  /// The wrapper recorded for the node, else what `create` makes; None is passed on and not recorded.
  template <class Create>
  PyRef NodeObjectOrCreate(const NamedNode& node, Create&& create) {
    if (PyRef live = Find(node)) return live;
    PyRef made = create();
    if (!Py_IsNone(made.Get())) Record(node.full_name, made.Get());
    return made;
  }

  /// The dictionary that somebody still holds, else the one that `create` makes (it must be weakly
  /// referenceable).
  template <class Create>
  PyRef NodeDictOrCreate(Create&& create) {
    if (PyRef live = Resolve(dictionary_)) return live;
    PyRef made = create();
    dictionary_ = Checked(PyWeakref_NewRef(made.Get(), nullptr));
    return made;
  }

  /// A new list of the nodes' wrappers in the order given.
  /// \param create  (index) -> PyRef, for those without one
  template <class Create>
  PyRef NodeListOrCreate(const std::vector<NamedNode>& nodes, Create&& create) {
    return MakeList(nodes.size(), [&](std::size_t index) {
      return NodeObjectOrCreate(nodes[index], [&] { return create(index); });
    });
  }

  /// Records a wrapper under its full name. A retired record cuts it off instead.
  void Record(const std::string& full_name, PyObject* wrapper);

  /// Forgets a wrapper, its listeners' hold included.
  void Forget(const std::string& full_name, PyObject* wrapper);

  /// The next NodeDictOrCreate builds a fresh dictionary; one in somebody's hands stays as it is.
  void ForgetDictionary() { dictionary_ = PyRef(); }

  /// Keeps a node wrapper alive while it has listeners, which else would go silently with a temporary
  /// (`node_map.Width.register_...`). Ends with Release, Forget or the record.
  void Keep(PyObject* wrapper);
  void Release(PyObject* wrapper);

 private:
  static PyRef Resolve(const PyRef& weak);
  PyRef Find(const NamedNode& node) const;
  // Takes out the entries of this name that are dead, and that of `wrapper`.
  void Erase(const std::string& full_name, PyObject* wrapper);

  bool retired_ = false;
  std::multimap<std::string, PyRef> nodes_;  ///< weak references
  std::map<PyObject*, PyRef> kept_;          ///< strong references to wrappers with listeners
  PyRef dictionary_;                         ///< weak reference
};

}  // namespace Tarn::Binding
