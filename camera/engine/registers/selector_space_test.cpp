#include "camera/engine/registers/selector_space.h"

#include <gtest/gtest.h>

#include <set>

#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_items.h"

namespace Tarn {
namespace {

NodePtr Bounded(const std::string& name, std::int64_t min, std::int64_t max, std::int64_t increment = 1) {
  NodePtr node = NewInteger(name);
  node->min = min;
  node->max = max;
  node->increment = increment;
  return node;
}

NodePtr Knife(const std::vector<NodePtr>& variables, const std::string& formula) {
  NodePtr node = NewNode(NodeKind::IntSwissKnife, "KNIFE");
  for (const NodePtr& variable : variables) AddRelated(node, NodeList::Child, variable, nullptr);
  SetTextItem(*node, NodeItem::Formula, formula);
  return node;
}

/// The addresses of a register at 0xA100 that these nodes move; nothing when they cannot be enumerated.
std::optional<std::set<std::uint32_t>> Addresses(const std::vector<NodePtr>& offsets) {
  const NodePtr reg = NewIntReg("Cell", 0xA100);
  for (const NodePtr& offset : offsets) AddRelated(reg, NodeList::Addresses, offset, nullptr);
  const AddressSelectors selectors = FindAddressSelectors(*reg);
  if (selectors.present_only) return std::nullopt;
  std::set<std::uint32_t> addresses;
  for (std::size_t i = 0; i < selectors.space.Combinations(); ++i) {
    if (const auto address = AddressIn(*reg, selectors.space, i)) addresses.insert(*address);
  }
  return addresses;
}

TEST(AddressSelectors, AreFollowedThroughFormulasAndChains) {
  const NodePtr bank = Bounded("BANK", 0, 3);
  const NodePtr row = Bounded("ROW", 0, 20, 10);
  std::set<std::uint32_t> expected;
  for (std::uint32_t i = 0; i < 4; ++i) expected.insert({0xA100 + i * 16, 0xA104 + i * 16, 0xA108 + i * 16});
  EXPECT_EQ(Addresses({Knife({bank, row}, "BANK*16+ROW/10*4")}), expected);
  // One selector has one number at a time, however many ways lead to it.
  const NodePtr chained = Bounded("CHAINED", 0, 1);
  chained->value = bank;
  EXPECT_EQ(Addresses({Knife({bank}, "BANK*4"), Knife({chained}, "CHAINED*4")}),
            (std::set<std::uint32_t>{0xA100, 0xA108}));
}

TEST(AddressSelectors, LeaveOutWhatIsNoAddressAndGiveUpWhereThereAreTooMany) {
  const NodePtr divisor = Bounded("D", 0, 2);
  const NodePtr offset = Knife({divisor}, "8/D-4");  // none, 4, 0
  EXPECT_EQ(Addresses({offset}), (std::set<std::uint32_t>{0xA100, 0xA104}));
  divisor->max = std::int64_t{1} << 40;
  EXPECT_EQ(Addresses({offset}), std::nullopt);
  divisor->min = std::int64_t{5};
  divisor->max = std::int64_t{4};
  EXPECT_EQ(Addresses({offset}), std::nullopt);
}

}  // namespace
}  // namespace Tarn
