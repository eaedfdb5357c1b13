#include "camera/engine/registers/possible_values.h"

#include <gtest/gtest.h>

#include "camera/engine/nodes/node_items.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/node_values.h"

namespace Tarn {
namespace {

NodePtr Bounded(const std::string& name, std::int64_t min, std::int64_t max, std::int64_t increment = 1) {
  NodePtr node = MakeNode(NodeKind::Integer, name, NameSpace::Custom);
  node->min = min;
  node->max = max;
  node->increment = increment;
  return node;
}

NodePtr Knife(const std::vector<NodePtr>& variables, const std::string& formula) {
  NodePtr node = MakeNode(NodeKind::IntSwissKnife, "KNIFE", NameSpace::Custom);
  node->children = variables;
  SetTextItem(*node, NodeItem::Formula, formula);
  return node;
}

TEST(PossibleAddresses, FollowSelectorsThatLiveInTheClient) {
  const NodePtr bank = Bounded("BANK", 0, 3);
  const NodePtr row = Bounded("ROW", 0, 20, 10);
  const NodePtr reg = MakeRegister(NodeKind::IntReg, "Cell", NameSpace::Custom, 0xA100, 4);
  AddRelated(reg, NodeList::Addresses, Knife({bank, row}, "BANK*16+ROW/10*4"), nullptr);
  std::set<std::uint64_t> expected;
  for (std::uint64_t i = 0; i < 4; ++i) expected.insert({0xA100 + i * 16, 0xA104 + i * 16, 0xA108 + i * 16});
  EXPECT_EQ(PossibleAddresses(*reg), expected);
}

TEST(PossibleAddresses, LeaveOutWhatIsNoAddressAndGiveUpWhereThereAreTooMany) {
  const NodePtr divisor = Bounded("D", 0, 2);
  const NodePtr reg = MakeRegister(NodeKind::IntReg, "Cell", NameSpace::Custom, 0xA100, 4);
  AddRelated(reg, NodeList::Addresses, Knife({divisor}, "8/D-4"), nullptr);  // none, 4, 0
  EXPECT_EQ(PossibleAddresses(*reg), (std::set<std::uint64_t>{0xA100, 0xA104}));
  divisor->max = std::int64_t{1} << 40;
  EXPECT_EQ(PossibleAddresses(*reg), std::nullopt);
  divisor->min = std::int64_t{5};
  divisor->max = std::int64_t{4};
  EXPECT_EQ(PossibleAddresses(*reg), std::nullopt);
}

}  // namespace
}  // namespace Tarn
