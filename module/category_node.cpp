#include "gevserver/nodes/category_node.h"

#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

template <>
void TypeDef<CategoryNode>::Init() {
  using Native = Tarn::GevServer::CategoryNode;
  TypeBuilder type(Get(), "tarn.gevserver.CategoryNode", "Groups other nodes, as clients show them.");
  type.Base(TypeObject__ValueNode__());
  AddCreate<Native>(type);
  type.ReadOnly<&Native::Nodes>("nodes", "Gets the nodes categorized by this node.");
  AddFromString(type, "Not supported.", "", "Value ignored.");
  AddNeverStreamable(type, "Categories are never streamable.");
  AddFixedModes(type, "Categories are always read-only (see tarn.AccessMode).",
                "Nothing to cache here (see tarn.CacheMode).", "Nothing to poll.");
}

}  // namespace _tarn::gevserver
