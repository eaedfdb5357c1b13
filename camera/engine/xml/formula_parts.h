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
/// becomes a swiss knife of its own, so that nested divisions do not multiply the text.
struct PublishedFormula {
  struct Part {
    std::string node;     ///< name of the further swiss knife, also that of its variable
    std::string formula;  ///< over the knife's variables and the parts before
  };

  std::vector<std::string>
      variables;  ///< what the knife's children are called in the formulas, in their order
  std::vector<Part> parts;
  std::string formula;  ///< over the variables and all parts
};

/// Requires: `knife` has a formula, and is in a tree, whose names the parts avoid.
PublishedFormula PublishFormula(const Node& knife);

}  // namespace Tarn
