#include "camera/engine/nodes/node_access.h"

#include <gtest/gtest.h>

#include <functional>

#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_values.h"

namespace Tarn {
namespace {

constexpr auto NI = AccessMode::NotImplemented;
constexpr auto NA = AccessMode::NotAvailable;
constexpr auto RO = AccessMode::ReadOnly;
constexpr auto WO = AccessMode::WriteOnly;
constexpr auto RW = AccessMode::ReadWrite;

NodePtr Condition(bool holds) { return NewInteger("Condition", std::int64_t{holds}); }

TEST(Access, IsWhatAllRestrictionsLeave) {
  const struct {
    AccessMode own;
    std::optional<AccessMode> imposed;
    bool locked, available, implemented;
    AccessMode left;
  } rows[] = {
      {RO, {}, false, true, true, RO},  {RO, WO, false, true, true, NA}, {RO, RW, false, true, true, RO},
      {RO, {}, true, true, true, RO},   {WO, {}, false, true, true, WO}, {WO, RO, false, true, true, NA},
      {WO, RW, false, true, true, WO},  {WO, {}, true, true, true, NA},  {RW, {}, false, true, true, RW},
      {RW, RO, false, true, true, RO},  {RW, WO, false, true, true, WO}, {RW, {}, true, true, true, RO},
      {RW, {}, false, true, false, NI}, {RW, RO, true, false, true, NA}, {RW, {}, false, false, false, NI},
  };
  for (const auto& row : rows) {
    const NodePtr reg = NewIntReg("Reg");
    reg->reg->access = row.own;
    reg->imposed_access = row.imposed;
    reg->is_locked = Condition(row.locked);
    reg->is_available = Condition(row.available);
    reg->is_implemented = Condition(row.implemented);
    const NodePtr feature = NewInteger("Outer", NewInteger("Inner", reg));
    EXPECT_EQ(AccessOf(*reg), row.left) << "row " << &row - rows;
    EXPECT_EQ(AccessOf(*feature), row.left) << "through features, row " << &row - rows;
    feature->imposed_access = RO;
    EXPECT_EQ(AccessOf(*feature), row.left == RW ? RO : row.left == WO ? NA : row.left) << &row - rows;
  }
}

TEST(Access, OfNodesWithoutARegister) {
  EXPECT_EQ(AccessOf(*NewInteger("Constant")), RW);
  const NodePtr knife = NewKnife("Knife", {}, "");
  for (const NodePtr& node :
       {NewNode(NodeKind::Category, "Category"), knife, NewInteger("OfKnife", knife), NewEntry("Entry", 1)}) {
    EXPECT_EQ(AccessOf(*node), RO) << node->name;
  }
}

TEST(Access, FallsWithWhatLimitsAndFormulasNeed) {
  const NodePtr gone = NewInteger("GONE");
  gone->is_available = Condition(false);
  const NodePtr knife = NewKnife("Knife", {gone, NewInteger("THERE")}, "THERE+1");
  const NodePtr feature = NewInteger("Feature", NewIntReg("Reg"));
  feature->max = knife;
  EXPECT_EQ(AccessOf(*feature), RW);  // what a formula does not use does not matter
  SetTextItem(*knife, NodeItem::Formula, "THERE+GONE");
  EXPECT_EQ(AccessOf(*knife), NA);
  EXPECT_EQ(AccessOf(*feature), NA);
}

/// Each node takes value, limits and increment from the one before: 4^200 ways, were they all gone.
TEST(Evaluation, ComputesEachNodeOnce) {
  NodePtr feature = NewIntReg("Reg", -1, 8);
  NodePtr knife = NewInteger("N0", std::int64_t{1});
  for (int i = 0; i < 200; ++i) {
    const NodePtr next = NewInteger("F" + std::to_string(i), feature);
    next->min = next->max = next->increment = feature;
    feature = next;
    if (i < 60) knife = NewKnife("K" + std::to_string(i), {knife}, knife->name + "+" + knife->name);
  }
  EXPECT_EQ(AccessOf(*feature), RW);
  EXPECT_EQ(ReadInteger(*knife), std::int64_t{1} << 60);
}

TEST(Evaluation, EndsWhereChainsAreTooLong) {
  const NodePtr reg = NewIntReg("Reg");
  reg->reg->cache = CacheMode::WriteAround;
  NodePtr last = reg;
  for (int i = 0; i < 100'000; ++i) last = NewInteger("N", last);
  const std::function<void()> uses[] = {[&] { AccessOf(*last); }, [&] { ReadInteger(*last); },
                                        [&] { ReadText(*last); }, [&] { WriteInteger(*last, 1); },
                                        [&] { IntegerItem(*last, NodeItem::Max); }};
  for (const auto& use : uses) EXPECT_EQ(Refusal(use), Failure::kNoValue);
  EXPECT_EQ(CacheOf(*last), CacheMode::WriteAround);  // that of the register, however far
  EXPECT_EQ(CacheOf(*NewInteger("Constant")), CacheMode::NoCache);
}

}  // namespace
}  // namespace Tarn
