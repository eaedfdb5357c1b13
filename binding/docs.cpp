#include "binding/docs.h"

#include <sstream>

namespace Tarn::Binding {
namespace {

constexpr const char* kIndent = "    ";

void WriteSignature(std::ostream& out, const CallDoc& call) {
  out << (call.is_async ? "async " : "") << "def " << call.name << "(" << (call.is_static ? "" : "self");
  bool first = call.is_static;
  for (const ParamDoc& param : call.params) {
    out << (first ? "" : ", ") << param.name << ": " << param.type;
    if (!param.default_text.empty()) out << " = " << param.default_text;
    first = false;
  }
  out << ") -> " << call.returns.type << ":";
}

void WriteCall(std::ostream& out, const CallDoc& call) {
  out << "@sec@call ";
  WriteSignature(out, call);
  out << "\n\n" << call.summary;
  if (!call.description.empty()) out << "\n\n" << call.description;
  if (!call.params.empty()) {
    out << "\n\nParameters\n----------";
    for (const ParamDoc& param : call.params) {
      out << "\n" << param.name << " : " << param.type << "\n" << kIndent << param.doc << "\n";
    }
  }
  if (!call.returns.doc.empty()) {
    out << "\nReturns\n-------\n" << call.returns.type << "\n" << kIndent << call.returns.doc << "\n";
  }
  for (const auto& [title, text] : call.sections) {
    out << "\n" << title << "\n" << std::string(title.size(), '-') << "\n" << text << "\n";
  }
  out << "\n";
}

}  // namespace

std::string CallDocs(const std::vector<CallDoc>& calls) {
  std::ostringstream out;
  for (const CallDoc& call : calls) WriteCall(out, call);
  return out.str();
}

std::string TypeDocs(const std::string& name, const std::string& summary, const std::string& description,
                     const std::vector<CallDoc>& constructors) {
  std::string text = "@sec@cls " + name + "\n\n";
  if (!summary.empty()) text += summary + "\n\n";
  if (!description.empty()) text += description + "\n\n";
  return text + CallDocs(constructors);
}

std::string PropertyDocs(bool read_only, const std::string& summary, const std::string& description) {
  if (summary.empty()) return {};
  return (read_only ? "@ro " : "") + summary + (description.empty() ? "" : "\n\n" + description);
}

}  // namespace Tarn::Binding
