#include "camera/engine/registers/selector_space.h"

#include <gtest/gtest.h>

#include <set>

#include "camera/engine/nodes/make_nodes_test.h"

namespace Tarn {
namespace {

using Addresses = std::set<std::uint32_t>;

/// The addresses of a register at 0xA100 that these nodes move; nothing when they cannot be enumerated.
std::optional<Addresses> Moved(const std::vector<NodePtr>& offsets) {
  const NodePtr reg = NewIntReg("Cell", 0xA100);
  for (const NodePtr& offset : offsets) Link(reg, NodeList::Addresses, offset);
  const AddressSelectors selectors = FindAddressSelectors(*reg);
  if (selectors.present_only) return std::nullopt;
  Addresses addresses;
  for (std::size_t i = 0; i < selectors.space.Combinations(); ++i) {
    if (const auto address = AddressIn(*reg, selectors.space, i)) addresses.insert(*address);
  }
  return addresses;
}

TEST(AddressSelectors, AreFollowedThroughFormulasAndChains) {
  const NodePtr bank = NewBounded("BANK", 0, 3);
  const NodePtr row = NewBounded("ROW", 0, 20, 10);
  Addresses expected;
  for (std::uint32_t i = 0; i < 4; ++i) expected.insert({0xA100 + i * 16, 0xA104 + i * 16, 0xA108 + i * 16});
  EXPECT_EQ(Moved({NewKnife("KNIFE", {bank, row}, "BANK*16+ROW/10*4")}), expected);
  // One selector has one number at a time, however many ways lead to it.
  const NodePtr chained = NewBounded("CHAINED", 0, 1);
  chained->value = bank;
  EXPECT_EQ(Moved({NewKnife("KNIFE", {bank}, "BANK*4"), NewKnife("KNIFE", {chained}, "CHAINED*4")}),
            (Addresses{0xA100, 0xA108}));
}

TEST(AddressSelectors, LeaveOutWhatIsNoAddressAndGiveUpWhereThereAreTooMany) {
  const NodePtr divisor = NewBounded("D", 0, 2);
  const NodePtr offset = NewKnife("KNIFE", {divisor}, "8/D-4");  // none, 4, 0
  EXPECT_EQ(Moved({offset}), (Addresses{0xA100, 0xA104}));
  divisor->max = std::int64_t{1} << 40;
  EXPECT_EQ(Moved({offset}), std::nullopt);
  divisor->max = std::int64_t{-1};
  EXPECT_EQ(Moved({offset}), std::nullopt);
}

}  // namespace
}  // namespace Tarn
