#pragma once

/// Docstrings from descriptions: one layout for all types, methods and properties.
///
/// The markers "@sec@cls ", "@sec@call " and "@ro " stay in the stored texts; the documentation build reads
/// them.

#include <string>
#include <utility>
#include <vector>

namespace Tarn::Binding {

struct ParamDoc {
  std::string name;
  std::string type;  ///< as the signature line shows it: "int", "Optional[tarn.Image]"
  std::string doc;
  std::string default_text = "";  ///< empty: no default
};

struct ReturnDoc {
  std::string type = "None";
  std::string doc = "";  ///< empty: no Returns block
};

/// One signature of a method. `name` and `is_static` are filled in by TypeBuilder.
struct CallDoc {
  std::string summary;
  std::string description = "";
  std::vector<ParamDoc> params = {};
  ReturnDoc returns = {};
  std::vector<std::pair<std::string, std::string>> sections = {};  ///< title and text
  bool is_async = false;
  std::string name = "";
  bool is_static = false;
};

/// The docstring of a method: one callable section per signature, in order of trial.
std::string CallDocs(const std::vector<CallDoc>& calls);

/// The docstring of a type.
/// \param name  qualified, "tarn.gevserver.Node"
std::string TypeDocs(const std::string& name, const std::string& summary, const std::string& description,
                     const std::vector<CallDoc>& constructors);

/// The docstring of a property; an empty summary gives an empty docstring, also for a read-only one.
std::string PropertyDocs(bool read_only, const std::string& summary, const std::string& description);

}  // namespace Tarn::Binding
