#include "camera/engine/xml/formula_parts.h"

#include <gtest/gtest.h>

#include <map>

#include "camera/engine/nodes/make_nodes_test.h"

namespace Tarn {
namespace {

/// Of a knife that computes a formula of A and B.
PublishedFormula Publish(const std::string& formula) {
  FeatureTree tree;
  return PublishFormula(
      *Put(tree, NewKnife("Ratio", {Put(tree, NewInteger("A")), Put(tree, NewInteger("B"))}, formula)));
}

TEST(FormulaParts, NameOperandsSoThatNestingDoesNotMultiplyTheText) {
  std::string nested = "A";
  for (int i = 0; i < 20; ++i) nested = "((" + nested + ")/(B-" + std::to_string(i + 1) + "))";
  const PublishedFormula published = Publish(nested);
  EXPECT_EQ(published.parts.size(), 39u);  // a divisor each, and each quotient but the last
  for (const auto& part : published.parts) EXPECT_LT(part.formula.size(), 400u) << part.node;
}

TEST(FormulaParts, ListOnlyWhatTheyName) {
  std::string sum = "0";
  for (int i = 0; i < 16; ++i) sum += " + (A+" + std::to_string(i) + ")/" + std::to_string(i + 2);
  const PublishedFormula published = Publish(sum + " + (A+B)/(B/A)");
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

TEST(FormulaParts, AvoidWordsThatClientsKeepAndNodesThatExist) {
  FeatureTree tree;
  tree.Add(NewInteger("Ratio_Part1"));
  const NodePtr knife = Put(tree, NewKnife("Ratio", {NewInteger("E"), NewInteger("E_VAR")}, "(E+E_VAR)/2"));
  const PublishedFormula published = PublishFormula(*knife);
  ASSERT_EQ(published.parts.size(), 1u);
  const PublishedFormula::Knife& part = published.parts[0];
  ASSERT_EQ(part.variables.size(), 2u);
  EXPECT_EQ(part.variables[0].name + part.variables[1].name, "E_VARE_VAR_VAR");
  EXPECT_EQ(part.variables[1].node, "E");
  EXPECT_EQ(part.node, "Ratio_Part1_");
  EXPECT_EQ(part.formula, "((E_VAR_VAR)+(E_VAR))");
}

}  // namespace
}  // namespace Tarn
