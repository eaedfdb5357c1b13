#include "camera/engine/nodes/node_access.h"

#include <gtest/gtest.h>

#include <functional>

#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_items.h"
#include "camera/engine/nodes/node_values.h"

namespace Tarn {
namespace {

constexpr auto NI = AccessMode::NotImplemented;
constexpr auto NA = AccessMode::NotAvailable;
constexpr auto RO = AccessMode::ReadOnly;
constexpr auto WO = AccessMode::WriteOnly;
constexpr auto RW = AccessMode::ReadWrite;

/// Of a register with these restrictions, and of a feature whose value it is: the same.
AccessMode AccessWith(AccessMode own, std::optional<AccessMode> imposed, bool locked, bool available,
                      bool implemented) {
  const NodePtr reg = NewIntReg("Reg");
  reg->reg->access = own;
  reg->imposed_access = imposed;
  reg->is_locked = NewInteger("Locked", std::int64_t{locked});
  reg->is_available = NewInteger("Available", std::int64_t{available});
  reg->is_implemented = NewInteger("Implemented", std::int64_t{implemented});
  const AccessMode through = AccessOf(*NewInteger("Feature", reg));
  EXPECT_EQ(through, AccessOf(*reg));
  return through;
}

TEST(Access, IsWhatAllRestrictionsLeave) {
  const struct {
    AccessMode own;
    AccessMode imposed_ro;
    AccessMode imposed_wo;
    AccessMode imposed_rw;
    AccessMode locked;
  } rows[] = {{RO, RO, NA, RO, RO}, {WO, NA, WO, WO, NA}, {RW, RO, WO, RW, RO}};
  for (const auto& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.own));
    EXPECT_EQ(AccessWith(row.own, {}, false, true, true), row.own);
    EXPECT_EQ(AccessWith(row.own, RO, false, true, true), row.imposed_ro);
    EXPECT_EQ(AccessWith(row.own, WO, false, true, true), row.imposed_wo);
    EXPECT_EQ(AccessWith(row.own, RW, false, true, true), row.imposed_rw);
    EXPECT_EQ(AccessWith(row.own, {}, true, true, true), row.locked);
    EXPECT_EQ(AccessWith(row.own, {}, true, false, true), NA);
    EXPECT_EQ(AccessWith(row.own, RW, false, true, false), NI);
    EXPECT_EQ(AccessWith(row.own, {}, false, false, false), NI);
  }
}

TEST(Access, AddsUpAlongTheChain) {
  const NodePtr reg = NewIntReg("Reg");
  const NodePtr inner = NewInteger("Inner", reg);
  const NodePtr outer = NewInteger("Outer", inner);
  inner->imposed_access = RO;
  EXPECT_EQ(AccessOf(*outer), RO);
  outer->imposed_access = WO;
  EXPECT_EQ(AccessOf(*outer), NA);
  outer->imposed_access.reset();
  inner->is_available = NewInteger("No");
  EXPECT_EQ(AccessOf(*outer), NA);
  EXPECT_EQ(AccessOf(*reg), RW);
  outer->is_implemented = NewInteger("NoSuchThing");
  EXPECT_EQ(AccessOf(*outer), NI);
}

TEST(Access, OfNodesWithoutARegister) {
  EXPECT_EQ(AccessOf(*NewInteger("Constant")), RW);
  EXPECT_EQ(AccessOf(*NewNode(NodeKind::Category, "Category")), RO);
  EXPECT_EQ(AccessOf(*NewNode(NodeKind::IntSwissKnife, "Knife")), RO);
  EXPECT_EQ(AccessOf(*NewInteger("OfKnife", NewNode(NodeKind::IntSwissKnife, "Knife"))), RO);
  EXPECT_EQ(AccessOf(*NewEntry("Entry", 1)), RO);
}

TEST(Access, FallsWithWhatLimitsAndFormulasNeed) {
  const NodePtr gone = NewInteger("GONE");
  gone->is_available = NewInteger("No");
  const NodePtr there = NewInteger("THERE");
  const NodePtr knife = NewNode(NodeKind::IntSwissKnife, "Knife");
  knife->children = {gone, there};
  SetTextItem(*knife, NodeItem::Formula, "THERE+1");
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
    const NodePtr sum = NewNode(NodeKind::IntSwissKnife, "K" + std::to_string(i));
    AddRelated(sum, NodeList::Child, knife, nullptr);
    SetTextItem(*sum, NodeItem::Formula, knife->name + "+" + knife->name);
    if (i < 60) knife = sum;
  }
  EXPECT_EQ(AccessOf(*feature), RW);
  EXPECT_EQ(ReadInteger(*knife), std::int64_t{1} << 60);
}

TEST(Evaluation, EndsWhereChainsAreTooLong) {
  NodePtr last = NewIntReg("Reg");
  for (int i = 0; i < 100'000; ++i) last = NewInteger("N", last);
  const std::function<void()> uses[] = {[&] { AccessOf(*last); }, [&] { ReadInteger(*last); },
                                        [&] { ReadText(*last); }, [&] { WriteInteger(*last, 1); },
                                        [&] { IntegerItem(*last, NodeItem::Max); }};
  for (const auto& use : uses) EXPECT_EQ(Refusal(use), Failure::kNoValue);
  EXPECT_EQ(CacheOf(*last), CacheMode::WriteThrough);
}

TEST(CacheMode, IsTheRegistersAtTheEndOfTheChain) {
  const NodePtr reg = NewIntReg("Reg");
  reg->reg->cache = CacheMode::WriteAround;
  EXPECT_EQ(CacheOf(*NewInteger("Outer", NewInteger("Inner", reg))), CacheMode::WriteAround);
  EXPECT_EQ(CacheOf(*NewInteger("Constant")), CacheMode::NoCache);
}

}  // namespace
}  // namespace Tarn
