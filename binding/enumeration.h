#pragma once

/// Enumeration types: named integer codes as read-only attributes of a class.

#include <Python.h>

#include <cstdint>
#include <deque>
#include <string>

#include "binding/docs.h"
#include "binding/type_definition.h"

namespace Tarn::Binding {

/// Puts the members into a fresh heap type and makes them read only there.
/// Throws: PresetError.
void AddMembers(PyObject* type, const std::deque<MemberEntry>& members);

/// A published number, which programs may have written down. Where the native code differs, the call does not
/// compile.
template <class Code>
consteval std::int64_t Published(std::int64_t number, Code code) {
  return number == static_cast<std::int64_t>(code) ? number : throw "the native code has another number";
}

/// Describes an enumeration type.
class EnumerationBuilder {
 public:
  /// \param name  qualified, "tarn.gevserver.State"
  EnumerationBuilder(TypeDefinition& definition, const std::string& name, const std::string& summary)
      : definition_(definition) {
    definition_.docstring = TypeDocs(name, summary, "", {});
  }

  EnumerationBuilder& Member(const std::string& name, std::int64_t value, const std::string& summary,
                             const std::string& description = "") {
    definition_.members.push_back({name, PropertyDocs(true, summary, description), value});
    return *this;
  }

 private:
  TypeDefinition& definition_;
};

}  // namespace Tarn::Binding
