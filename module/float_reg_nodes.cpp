#include "gevserver/nodes/register_nodes.h"
#include "module/register_node_members.h"

// Floating-point registers of any length, of 4 and of 8 bytes.

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

namespace {

bool IsSignedFloat(const Native::FloatRegNode& node) { return node.Sign() == GS_SIGNED; }

}  // namespace

template <>
void TypeDef<FloatRegNode>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.FloatRegNode", "Represents a floating-point number register.");
  type.Base(TypeObject__FloatBaseNode__());
  AddRegisterMembers<Native::FloatRegNode>(type);
  type.ReadOnly<&IsSignedFloat>("is_signed", "Gets whether this float register is signed.", "Always true.");
}

template <>
void TypeDef<Float32RegNode>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.Float32RegNode",
                   "Represents a single precision floating-point number register of 4 bytes.");
  type.Base(TypeObject__FloatRegNode__());
  AddRegisterCreate<Native::Float32RegNode>(type);
}

template <>
void TypeDef<Float64RegNode>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.Float64RegNode",
                   "Represents a double precision floating-point number register of 8 bytes.");
  type.Base(TypeObject__FloatRegNode__());
  AddRegisterCreate<Native::Float64RegNode>(type);
}

}  // namespace _tarn::gevserver
