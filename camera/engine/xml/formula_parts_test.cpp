#include "camera/engine/xml/formula_parts.h"

#include <gtest/gtest.h>

#include <map>

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
  EXPECT_EQ(published.whole.formula, "(((A)/(B))-(((((A)%(B))<>(0)))&&((((A)<(0))<>((B)<(0))))))");
  EXPECT_TRUE(published.parts.empty());
}

TEST_F(FormulaPartsTest, NameOperandsSoThatNestingDoesNotMultiplyTheText) {
  std::string nested = "A";
  for (int i = 0; i < 20; ++i) nested = "((" + nested + ")/(B-" + std::to_string(i + 1) + "))";
  const PublishedFormula published = Publish({"A", "B"}, nested);
  EXPECT_EQ(published.parts.size(), 39u);  // a divisor each, and each quotient but the last
  for (const auto& part : published.parts) EXPECT_LT(part.formula.size(), 400u) << part.node;
}

TEST_F(FormulaPartsTest, ListOnlyWhatTheyName) {
  std::string sum = "0";
  for (int i = 0; i < 16; ++i) sum += " + (A+" + std::to_string(i) + ")/" + std::to_string(i + 2);
  const PublishedFormula published = Publish({"A", "B"}, sum + " + (A+B)/(B/A)");
  // As a client without a cache does it: a read of each variable that is listed.
  std::map<std::string, std::size_t> reads;
  const auto reads_of = [&](const PublishedFormula::Knife& knife) {
    std::size_t sum_of_reads = 0;
    for (const auto& variable : knife.variables) {
      sum_of_reads += reads.contains(variable.node) ? reads.at(variable.node) : 1;
    }
    return sum_of_reads;
  };
  for (const auto& part : published.parts) reads[part.node] = reads_of(part);
  EXPECT_EQ(reads_of(published.whole), 16u + 4u);
}

TEST_F(FormulaPartsTest, AvoidWordsThatClientsKeepAndNodesThatExist) {
  tree_.Add(MakeNode(NodeKind::Integer, "Ratio_Part1", NameSpace::Custom));
  const PublishedFormula published = Publish({"E", "E_VAR"}, "(E+E_VAR)/2");
  ASSERT_EQ(published.parts.size(), 1u);
  const std::vector<PublishedFormula::Variable>& variables = published.parts[0].variables;
  ASSERT_EQ(variables.size(), 2u);
  EXPECT_EQ(variables[0].name + variables[1].name, "E_VARE_VAR_VAR");
  EXPECT_EQ(variables[1].node, "E");
  EXPECT_EQ(published.parts[0].node, "Ratio_Part1_");
  EXPECT_EQ(published.parts[0].formula, "((E_VAR_VAR)+(E_VAR))");
}

}  // namespace
}  // namespace Tarn
