#pragma once

/// Whole configurations of the device, kept in memory under numbers: what clients know as user sets.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "camera/engine/registers/register_file.h"

namespace Tarn {

/// The sets and their numbers, which are those of the selector's entries.
enum class UserSet : std::uint32_t { Default, UserSet1 };
inline constexpr std::size_t kUserSetCount = 2;

/// A set holds the bytes of all streamable registers (see RegisterFile::Streamable). Features without a
/// register are constants of the clients and not in it. A register is known by the name of its node and its
/// address, so values outlive changes of the tree between runs.
///
/// Threads: guarded by the tree lock.
class UserSets {
 public:
  UserSets(FeatureTree& tree, RegisterFile& registers) : tree_(tree), registers_(registers) {}

  /// Takes registers that a set does not know yet into it, with their present values. To be called when the
  /// registers were indexed: so Default is what a register held at the first start with it, and a set that
  /// was never saved is the same.
  void Complete();

  /// Requires: set is not Default.
  void Save(UserSet set);

  /// Writes the values as a client would. Limits of one feature often depend on others, so what is refused is
  /// tried again as long as anything else is taken; what is refused for good, say by a lock, stays as it is.
  /// \return the registers that took their values, in the order of writing
  std::vector<PlacedRegister> Load(UserSet set, const WriteContext& context);

 private:
  using Place = std::pair<std::string, std::uint64_t>;
  using Values = std::map<Place, std::vector<std::uint8_t>>;

  std::vector<std::uint8_t> Content(const PlacedRegister& reg) const;
  bool Restore(const PlacedRegister& reg, const Values& values, const WriteContext& context);

  FeatureTree& tree_;
  RegisterFile& registers_;
  std::array<Values, kUserSetCount> sets_;
};

/// Tells clients which registers they have to read again when a set was loaded. To be called before the
/// description is written.
void InvalidateByUserSets(const FeatureTree& tree);

}  // namespace Tarn
