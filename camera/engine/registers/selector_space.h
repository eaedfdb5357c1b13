#pragma once

/// Where a register can lie, and which numbers of its selectors lead there.
///
/// A selector that lives in the client, a constant of the description, has another number there than here.
/// Which one shows only in the address that the client uses.

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "camera/engine/nodes/evaluation.h"
#include "camera/engine/nodes/node.h"

namespace Tarn {

/// More combinations of numbers than this are not followed up.
inline constexpr std::size_t kMaxCombinations = 4096;

/// The combinations of numbers that some selectors can have. The nodes must outlive it.
class SelectorSpace {
 public:
  /// \param limit  of the number of combinations
  explicit SelectorSpace(std::size_t limit = kMaxCombinations) : limit_(limit) {}

  /// How many there are: 1 without selectors, 0 when a selector can have no number.
  std::size_t Combinations() const;

  /// Gives the selectors the numbers of one combination.
  /// Requires: combination < Combinations().
  void Assume(std::size_t combination, Evaluation& at) const;

  /// Adds a selector; one that comes in twice keeps the fewer numbers.
  /// \param source  the register or constant that its value chain ends in
  /// \return false when there would be too many combinations; nothing has changed then
  bool Add(const Node& source, std::vector<std::int64_t> numbers);

  bool Has(const Node& source) const { return numbers_.contains(&source); }

 private:
  std::size_t limit_;
  std::map<const Node*, std::vector<std::int64_t>> numbers_;
};

/// What the address of a register follows.
struct AddressSelectors {
  SelectorSpace space;
  /// The numbers cannot be enumerated: the register lies where its address nodes say at each moment.
  bool present_only = false;
  /// The places change with the values of these nodes.
  std::vector<NodePtr> inputs;
};

/// Throws: EngineError when a limit of a selector has no value.
AddressSelectors FindAddressSelectors(const Node& reg);

/// The address in one combination; nothing where the register cannot lie.
std::optional<std::uint32_t> AddressIn(const Node& reg, const SelectorSpace& space, std::size_t combination);

/// The clients' selectors that decide about access and values of a register without moving it. Where there
/// are too many combinations, some are left out; the number that they have here holds.
/// \param dependants  nodes whose value chain ends in the register
/// \param moving      selectors to leave out
SelectorSpace FindOtherSelectors(const Node& reg, const std::vector<NodePtr>& dependants,
                                 const SelectorSpace& moving, std::size_t limit);

}  // namespace Tarn
