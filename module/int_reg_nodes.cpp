#include "gevserver/nodes/register_nodes.h"
#include "module/register_node_members.h"

// Integer registers of any length, of 4 and of 8 bytes.

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

namespace {

bool IsSignedInteger(const Native::IntRegNode& node) { return node.Sign() == GS_SIGNED; }

void SetIsSigned(Native::IntRegNode& node, bool is_signed) {
  node.SetSign(is_signed ? GS_SIGNED : GS_UNSIGNED);
}

}  // namespace

template <>
void TypeDef<IntRegNode>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.IntRegNode", "Represents an integer register.");
  type.Base(TypeObject__IntegerBaseNode__());
  AddRegisterMembers<Native::IntRegNode>(type);
  type.ReadWrite<&IsSignedInteger, &SetIsSigned>(
      "is_signed", "Gets or sets whether this integer register is signed.", kConfigurationOnly);
}

template <>
void TypeDef<Int32RegNode>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.Int32RegNode", "Represents an integer register of 4 bytes.");
  type.Base(TypeObject__IntRegNode__());
  AddRegisterCreate<Native::Int32RegNode>(type);
}

template <>
void TypeDef<Int64RegNode>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.Int64RegNode", "Represents an integer register of 8 bytes.");
  type.Base(TypeObject__IntRegNode__());
  AddRegisterCreate<Native::Int64RegNode>(type);
}

}  // namespace _tarn::gevserver
