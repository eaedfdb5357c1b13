#include "gevserver/nodes/int_swiss_knife_node.h"

#include "module/node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;

namespace {

// Operators are escaped: the documentation build would take them for markup. The example of grouping is
// published as it stands.
constexpr const char* kFormulaDoc = R"(The variables must be added before the formula is set, because the
formula is checked then. Variable names consist of capital letters only (A to Z).
Logical operations result to 1 for true and 0 for false; any number but 0 counts as true.

Available operations:

( ) : Grouping, e.g. 3 * (2 / 3) results to 15
\+ \- \* / : Addition, subtraction, multiplication and division, e.g. 3 \* 7 \+ 4 / 2 results to 23
% : Remainder, e.g. 7 % 4 results to 3
\*\* : Power, e.g. 2 \*\* 3 results to 8
& \| ^ ~ : Bitwise and, or, xor and not, e.g. 2 \| 1 results to 3
&& \|\| : Logical and, or, e.g. 1 && 0 results to 0
<> = > < <= >= : Unequal, equal, greater, less, less or equal, greater or equal, e.g. 3 >= 2 results to 1
<< >> : Shift left, shift right, e.g. 1 << 2 results to 4
? : : Conditional: condition ? true case : false case
SGN : Signum (-1, 0 or 1), e.g. SGN(42) results to 1
NEG : Negation, e.g. NEG(-42) results to 42

)";

}  // namespace

template <>
void TypeDef<IntSwissKnifeNode>::Init() {
  using Native = Tarn::GevServer::IntSwissKnifeNode;
  TypeBuilder type(Get(), "tarn.gevserver.IntSwissKnifeNode",
                   "Due to the integer arithmetic used in this node a System.Math.Floor(double) operation is "
                   "performed after each calculation: The computation 2 * (3 / 2) results to two and not "
                   "three. See the Formula property for available operations.");
  type.Base(TypeObject__IntegerBaseNode__());
  AddCreate<Native>(type);
  type.ReadOnly<&Native::Variables>("variables", "Gets the variables of the formula.",
                                    "A dictionary from variable names to the nodes that supply the values. "
                                    "Add variables with tarn.gevserver.NodeList.Child.")
      .ReadWrite<&Native::Formula, &Native::SetFormula>("formula", "Gets or sets the formula of this node.",
                                                        kFormulaDoc + std::string(kConfigurationOnly));
  AddFixedModes(type, "Swiss knifes are always read only.",
                "Here we may have multiple ones and can give no sane answer.",
                "Always time span zero as there may be multiple values.");
}

}  // namespace _tarn::gevserver
