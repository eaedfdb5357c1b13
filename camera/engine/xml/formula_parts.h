#pragma once

/// Formulas as clients are to read them: quotients floored, as the device computes them, though clients
/// truncate.

#include <string>
#include <vector>

#include "camera/engine/nodes/node.h"

namespace Tarn {

/// A swiss knife's formula, and the further swiss knives that it needs.
///
/// Flooring names each operand of a division several times. An operand that is no single name or number
/// becomes a swiss knife of its own, so that nested divisions do not multiply the text. Each knife lists only
/// what its formula names, and each of the further ones is named by one other: clients read all that a knife
/// lists, so their work grows with the formula and no faster.
struct PublishedFormula {
  struct Variable {
    std::string name;  ///< in the formula
    std::string node;
  };
  struct Knife {
    std::string node;  ///< its name, also that of its variable
    std::string formula;
    std::vector<Variable> variables;
  };

  std::vector<Knife> parts;  ///< each stands before those that name it
  Knife whole;               ///< the swiss knife itself
};

/// Requires: `knife` has a formula, and is in a tree, whose names the parts avoid.
PublishedFormula PublishFormula(const Node& knife);

}  // namespace Tarn
