#pragma once

/// Describes a Python type as a compact table: start here to add one.
///
/// A type needs a native class, a name in the module's list of types, and one file like this:
///
///     // Its wrappers share a Sensor; this goes into a header when several types share the root.
///     template <>
///     struct Tarn::Binding::Held<Sensor> {
///       using Root = Sensor;
///       static constexpr bool kValue = false;
///     };
///
///     namespace _tarn::gevserver {
///     namespace {
///
///     // A static factory: parameters are converted by type, std::optional ones may be left out.
///     PyRef Create(std::string name, std::optional<std::int64_t> channel) {
///       return Bind(TypeObject__Sensor__(), std::make_shared<Sensor>(name, channel.value_or(0)));
///     }
///
///     // A method that needs more than one native call: the receiver comes first.
///     bool Warm(Sensor& sensor, double kelvin) { return sensor.Heat(kelvin) && sensor.IsStable(); }
///
///     // A listener: the callable is kept in the wrapper's registry under the id, the native side keeps the id
///     // only. See module/node_listeners.h for nodes.
///     std::int64_t Register(Self self, Callable handler) {
///       const std::int64_t id = Extract<Sensor>(self.object)->Register(&OnSensorEvent);
///       MetaOf(self.object)->callables.Store(kEventUpdated, id, handler.object);
///       return id;
///     }
///
///     }  // namespace
///
///     template <>
///     void TypeDef<Sensor>::Init() {
///       TypeBuilder(Get(), "tarn.gevserver.Sensor", "Measures light.")
///           .ReadOnly<&Sensor::Serial>("serial", "Gets the serial number.")
///           .ReadWrite<&Sensor::Gain, &Sensor::SetGain>("gain", "Gets or sets the gain.", "In dB, 0 to 24.")
///           .Method<Signature<&Warm, "kelvin">>(
///               "warm", {{.summary = "Warms the sensor.",
///                         .params = {{"kelvin", "float", "Temperature to reach."}},
///                         .returns = {"bool", "True if stable."}}})
///           .Method<Signature<&Register, "handler">>("register", {{.summary = "Registers a listener."}})
///           .Static<Signature<&Create, "name", "channel">>("create", {{.summary = "Creates a sensor."}});
///     }
///
///     }  // namespace _tarn::gevserver
///
/// Accessors are operations of the native class (inherited ones too) or free functions whose first parameter
/// is a native reference, `const std::shared_ptr<Native>&`, or Self. An overloaded operation is picked with
/// static_cast. Several Signatures make an overload set, tried in order. Everything may throw; see
/// binding/errors.h for what the caller then sees.

#include <Python.h>

#include <string>
#include <vector>

#include "binding/call.h"
#include "binding/docs.h"
#include "binding/property.h"
#include "binding/type_definition.h"

namespace Tarn::Binding {

class TypeBuilder {
 public:
  /// \param name  qualified, "tarn.gevserver.Node"
  TypeBuilder(TypeDefinition& definition, std::string name, std::string summary,
              std::string description = "");

  TypeBuilder& Base(PyTypeObject* base) {
    definition_.base = base;
    return *this;
  }

  template <auto Get>
  TypeBuilder& ReadOnly(const std::string& name, const std::string& summary,
                        const std::string& description = "") {
    return Property(name, PropertyDocs(true, summary, description), &PropertyGet<Get>, nullptr);
  }

  template <auto Get, auto Set>
  TypeBuilder& ReadWrite(const std::string& name, const std::string& summary,
                         const std::string& description = "") {
    return Property(name, PropertyDocs(false, summary, description), &PropertyGet<Get>, &PropertySet<Set>);
  }

  /// \param docs  one per documented signature
  template <class... Signatures>
  TypeBuilder& Method(const std::string& name, std::vector<CallDoc> docs) {
    return Method(name, std::move(docs), false, &MethodFunction<CallKind::Instance, Signatures...>);
  }

  template <class... Signatures>
  TypeBuilder& Static(const std::string& name, std::vector<CallDoc> docs) {
    return Method(name, std::move(docs), true, &MethodFunction<CallKind::Static, Signatures...>);
  }

  /// The functions take a NewType first and return what Construct makes of it.
  template <class... Signatures>
  TypeBuilder& Constructor(std::vector<CallDoc> docs) {
    return Constructor(std::move(docs), &ConstructorFunction<Signatures...>);
  }

  /// For special operations: the record itself.
  TypeDefinition& Definition() { return definition_; }

 private:
  TypeBuilder& Property(const std::string& name, std::string docstring, getter get, setter set);
  TypeBuilder& Method(const std::string& name, std::vector<CallDoc> docs, bool is_static,
                      PyCFunctionWithKeywords function);
  TypeBuilder& Constructor(std::vector<CallDoc> docs, newfunc function);

  TypeDefinition& definition_;
  const std::string name_;
  const std::string summary_;
  const std::string description_;
};

}  // namespace Tarn::Binding
