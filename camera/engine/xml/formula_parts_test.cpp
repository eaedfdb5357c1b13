#include "camera/engine/xml/formula_parts.h"

#include <gtest/gtest.h>

#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/nodes/node_items.h"

namespace Tarn {
namespace {

class FormulaPartsTest : public testing::Test {
 protected:
  PublishedFormula Publish(const std::vector<std::string>& names, const std::string& formula) {
    const NodePtr knife = MakeNode(NodeKind::IntSwissKnife, "Ratio", NameSpace::Custom);
    for (const std::string& name : names) {
      knife->children.push_back(MakeNode(NodeKind::Integer, name, NameSpace::Custom));
      tree_.Add(knife->children.back());
    }
    tree_.Add(knife);
    SetTextItem(*knife, NodeItem::Formula, formula);
    return PublishFormula(*knife);
  }

  FeatureTree tree_;
};

TEST_F(FormulaPartsTest, FloorQuotientsOfNames) {
  const PublishedFormula published = Publish({"A", "B"}, "A/B");
  EXPECT_EQ(published.formula, "(((A)/(B))-(((((A)%(B))<>(0)))&&((((A)<(0))<>((B)<(0))))))");
  EXPECT_TRUE(published.parts.empty());
}

TEST_F(FormulaPartsTest, NameOperandsSoThatNestingDoesNotMultiplyTheText) {
  std::string nested = "A";
  for (int i = 0; i < 20; ++i) nested = "((" + nested + ")/(B-" + std::to_string(i + 1) + "))";
  const PublishedFormula published = Publish({"A", "B"}, nested);
  EXPECT_EQ(published.parts.size(), 39u);  // a divisor each, and each quotient but the last
  for (const auto& part : published.parts) EXPECT_LT(part.formula.size(), 400u) << part.node;
}

TEST_F(FormulaPartsTest, AvoidWordsThatClientsKeepAndNodesThatExist) {
  tree_.Add(MakeNode(NodeKind::Integer, "Ratio_Part1", NameSpace::Custom));
  const PublishedFormula published = Publish({"E", "E_VAR"}, "(E+E_VAR)/2");
  EXPECT_EQ(published.variables, (std::vector<std::string>{"E_VAR_VAR", "E_VAR"}));
  ASSERT_EQ(published.parts.size(), 1u);
  EXPECT_EQ(published.parts[0].node, "Ratio_Part1_");
  EXPECT_EQ(published.parts[0].formula, "((E_VAR_VAR)+(E_VAR))");
}

}  // namespace
}  // namespace Tarn
