#include "binding/type_builder.h"

#include <utility>

namespace Tarn::Binding {
namespace {

std::vector<CallDoc> Named(std::vector<CallDoc> docs, const std::string& name, bool is_static) {
  for (CallDoc& doc : docs) {
    doc.name = name;
    doc.is_static = is_static;
  }
  return docs;
}

}  // namespace

TypeBuilder::TypeBuilder(TypeDefinition& definition, std::string name, std::string summary,
                         std::string description)
    : definition_(definition),
      name_(std::move(name)),
      summary_(std::move(summary)),
      description_(std::move(description)) {
  definition_.docstring = TypeDocs(name_, summary_, description_, {});
}

TypeBuilder& TypeBuilder::Property(const std::string& name, std::string docstring, getter get, setter set) {
  definition_.properties.push_back({name, std::move(docstring), get, set});
  return *this;
}

TypeBuilder& TypeBuilder::Method(const std::string& name, std::vector<CallDoc> docs, bool is_static,
                                 PyCFunctionWithKeywords function) {
  definition_.methods.push_back(
      {name, CallDocs(Named(std::move(docs), name, is_static)), is_static, function});
  return *this;
}

TypeBuilder& TypeBuilder::Constructor(std::vector<CallDoc> docs, newfunc function) {
  definition_.construct = function;
  definition_.docstring = TypeDocs(name_, summary_, description_, Named(std::move(docs), "__init__", false));
  return *this;
}

}  // namespace Tarn::Binding
