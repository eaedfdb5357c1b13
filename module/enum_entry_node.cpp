#include "gevserver/nodes/enumeration_node.h"
#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

template <>
void TypeDef<EnumEntryNode>::Init() {
  using Native = Tarn::GevServer::EnumEntryNode;
  TypeBuilder type(Get(), "tarn.gevserver.EnumEntryNode", "Represents one entry of an enumeration.");
  type.Base(TypeObject__ValueNode__());
  AddCreate<Native>(type);
  type.ReadWrite<&Native::NumericValue, &Native::SetNumericValue>(
          "numeric_value", "Gets or sets the numeric value of this entry.", kConfigurationOnly)
      .ReadWrite<&Native::SymbolicValue, &Native::SetSymbolicValue>(
          "symbolic_value", "Gets or sets the symbolic value of this entry.", kConfigurationOnly);
  AddNeverStreamable(type, "EnumEntryNodes are never streamable.");
  AddFixedModes(type, "EnumEntryNodes are always read-only (see tarn.AccessMode).",
                "Nothing to cache here (see tarn.CacheMode).", "Nothing to poll.");
  AddFromString(type, "Not supported.", "", "Value ignored.");
}

}  // namespace _tarn::gevserver
