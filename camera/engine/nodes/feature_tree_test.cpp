#include "camera/engine/nodes/feature_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/nodes/register_value.h"

namespace Tarn {
namespace {

TEST(FeatureTree, FindsWhatWasAddedUntilItIsRemoved) {
  FeatureTree tree;
  const NodePtr node = NewInteger("Lamp");
  tree.Add(node);
  EXPECT_EQ(tree.Find("Lamp"), node);
  EXPECT_EQ(node->tree, &tree);
  EXPECT_EQ(Refusal([&] { tree.Add(node); }), Failure::kExists);
  EXPECT_EQ(Refusal([&] { tree.Add(NewInteger("Lamp")); }), Failure::kExists);
  // Clients know the port by this name.
  EXPECT_EQ(Refusal([&] { tree.Add(NewInteger("Device")); }), Failure::kExists);
  FeatureTree other;
  EXPECT_EQ(Refusal([&] { other.Add(node); }), Failure::kExists);
  EXPECT_EQ(Refusal([&] { other.Remove(node); }), Failure::kNotFound);
  tree.Remove(node);
  EXPECT_EQ(tree.Find("Lamp"), nullptr);
  other.Add(node);
  EXPECT_EQ(other.Nodes().size(), 1u);
}

TEST(FeatureTree, LetsGoOfItsNodesWhenItEnds) {
  const NodePtr node = NewInteger("Lamp");
  const NodePtr first = NewEnumeration("First", {}, {{"Off", 0}});
  const NodePtr second = NewEnumeration("Second", {}, {{"Off", 0}, {"On", 1}});
  const NodePtr unlisted = second->children[0];  // its name is the first one's
  const NodePtr listed = second->children[1];
  {
    FeatureTree tree;
    for (const NodePtr& added : {node, first, second}) tree.Add(added);
    EXPECT_EQ(unlisted->tree, &tree);
    RemoveRelated(second, NodeList::Child, unlisted);
    RemoveRelated(second, NodeList::Child, listed);
    EXPECT_EQ(unlisted->tree, nullptr);
    EXPECT_EQ(listed->tree, nullptr);
    EXPECT_EQ(tree.Find("On"), nullptr);
    EXPECT_NE(tree.Find("Off"), nullptr);
  }
  for (const NodePtr& left : {node, first, second, first->children[0]}) EXPECT_EQ(left->tree, nullptr);
}

TEST(FeatureTree, FindsEntriesBehindNodes) {
  FeatureTree tree;
  const NodePtr mode = NewEnumeration("Mode", {}, {{"Off", 0}, {"Lamp", 1}});
  tree.Add(mode);
  EXPECT_EQ(tree.Find("Off"), mode->children[0]);
  const NodePtr added = NewEntry("Strobe", 2);
  AddRelated(mode, NodeList::Child, added, mode->children[0]);
  EXPECT_EQ(tree.Find("Strobe"), added);
  EXPECT_EQ(mode->children[0], added);
  EXPECT_EQ(Refusal([&] { AddRelated(mode, NodeList::Child, NewEntry("Strobe", 3), nullptr); }),
            Failure::kExists);
  const NodePtr lamp = NewInteger("Lamp");
  tree.Add(lamp);
  EXPECT_EQ(tree.Find("Lamp"), lamp);
  tree.Remove(mode);
  EXPECT_EQ(tree.Find("Off"), nullptr);
  EXPECT_EQ(added->tree, nullptr);
  EXPECT_EQ(tree.Nodes(), std::vector<NodePtr>{lamp});
}

/// Names that two enumerations, an entry that was added by itself and a node share, in every order of going.
TEST(FeatureTree, ListsWhatItFindsWhicheverOfOneNameGoes) {
  const auto agree = [](FeatureTree& tree) {
    std::set<NodePtr> listed(tree.Nodes().begin(), tree.Nodes().end());
    EXPECT_EQ(listed.size(), tree.Nodes().size());
    for (const char* name : {"First", "Second", "Same"}) {
      const NodePtr found = tree.Find(name);
      EXPECT_EQ(listed.erase(found), found ? 1u : 0u) << name;
    }
    EXPECT_TRUE(listed.empty());
  };
  std::vector<int> order{0, 1, 2, 3};
  do {
    FeatureTree tree;
    const NodePtr first = NewEnumeration("First", {}, {{"Same", 0}});
    const NodePtr second = NewEnumeration("Second", {}, {{"Same", 0}});
    const NodePtr node = NewInteger("Same");
    const NodePtr entry = first->children[0];
    const NodePtr other = second->children[0];
    for (const NodePtr& added : {first, second, node}) tree.Add(added);
    agree(tree);
    for (const int step : order) {
      if (step == 0) tree.Remove(node);
      if (step == 1) tree.Remove(first);
      if (step == 2 && entry->tree) tree.Remove(entry);
      if (step == 3) RemoveRelated(second, NodeList::Child, other);
      agree(tree);
    }
    EXPECT_EQ(tree.Nodes(), std::vector<NodePtr>{second});
    EXPECT_EQ(other->tree, nullptr);
    EXPECT_EQ(entry->tree, nullptr);
  } while (std::ranges::next_permutation(order).found);
}

TEST(FeatureTree, TakesEntriesThatGoOutOfTheirEnumeration) {
  FeatureTree tree;
  const NodePtr mode = NewEnumeration("Mode", {}, {{"Off", 0}, {"On", 1}});
  tree.Add(mode);
  const NodePtr off = mode->children[0];
  tree.Remove(off);
  EXPECT_EQ(mode->children.size(), 1u);
  EXPECT_EQ(off->tree, nullptr);
  AddRelated(mode, NodeList::Child, off, nullptr);  // as free as any other
  EXPECT_EQ(tree.Find("Off"), off);
}

TEST(FeatureTree, RefusesEverythingWhileFrozen) {
  FeatureTree tree;
  const NodePtr node = NewNode(NodeKind::Category, "Group");
  const NodePtr member = NewInteger("Member");
  tree.Add(node);
  AddRelated(node, NodeList::Child, member, nullptr);
  tree.SetFrozen(true);
  EXPECT_EQ(Refusal([&] { tree.Add(member); }), Failure::kWrongState);
  EXPECT_EQ(Refusal([&] { tree.Remove(node); }), Failure::kWrongState);
  EXPECT_EQ(Refusal([&] { RemoveRelated(node, NodeList::Child, member); }), Failure::kWrongState);
  EXPECT_EQ(Refusal([&] { AddRelated(node, NodeList::Child, NewInteger("X"), nullptr); }),
            Failure::kWrongState);
  EXPECT_EQ(tree.Find("Group"), node);
  EXPECT_EQ(Related(*node, NodeList::Child), std::vector<NodePtr>{member});
}

TEST(RegisterAddresses, AreAssignedIncreasingAndAligned) {
  FeatureTree tree;
  const NodePtr small = NewIntReg("Small", -1, 2);
  const NodePtr number = NewIntReg("Number");
  const NodePtr taken = NewIntReg("Taken", kAutomaticStart + 8);
  const NodePtr wide = NewIntReg("Wide", -1, 8);
  const NodePtr text = NewRegister(NodeKind::StringReg, "Text", -1, 12);
  for (const NodePtr& node : {small, taken, number, wide, text}) tree.Add(node);
  const auto offset = [](const NodePtr& node) {
    return CurrentAddress(*node) - static_cast<std::int64_t>(kAutomaticStart);
  };
  EXPECT_EQ(offset(small), 0);
  EXPECT_EQ(offset(number), 4);
  EXPECT_EQ(offset(wide), 16);
  EXPECT_EQ(offset(text), 24);
}

TEST(RegisterAddresses, AreUsedAgain) {
  FeatureTree tree;
  const NodePtr kept = NewIntReg("Kept");
  tree.Add(kept);
  const NodePtr text = NewRegister(NodeKind::StringReg, "Text", -1, 0x10000);
  WriteText(*text, "text");
  // More often than there is room for.
  for (std::uint64_t i = 0; i < (kManufacturerRegisters - kAutomaticStart) / 0x10000 + 2; ++i) {
    text->reg->address = -1;
    ASSERT_EQ(Refusal([&] { tree.Add(text); }), std::nullopt) << i;
    tree.Remove(text);
  }
  EXPECT_EQ(ReadText(*text), "text");
  EXPECT_EQ(CurrentAddress(*kept), static_cast<std::int64_t>(kAutomaticStart));
}

TEST(RegisterAddresses, MayNotBeReservedOrTaken) {
  FeatureTree tree;
  tree.Add(NewIntReg("Short", 0x10000, 2));
  tree.Add(NewRegister(NodeKind::StringReg, "Text", 0x10010, 16));
  const struct {
    std::int64_t address;
    std::int64_t length;
    std::optional<Failure> failure;
  } rows[] = {
      {0x9FFC, 4, Failure::kAddress},
      {0xA000, 4, {}},
      {0xEFFF'FFFC, 4, {}},
      {0xEFFF'FFFC, 8, Failure::kAddress},
      {0xF000'0000, 4, Failure::kAddress},
      {0x10000, 1, Failure::kAddress},
      {0x10004, 4, {}},
      {0x1000C, 8, Failure::kAddress},
      {0x1001C, 4, Failure::kAddress},
      {0x10020, 8, {}},
  };
  for (const auto& row : rows) {
    const NodePtr node = NewIntReg("Reg" + std::to_string(row.address) + "_" + std::to_string(row.length),
                                   row.address, row.length);
    EXPECT_EQ(Refusal([&] { tree.Add(node); }), row.failure) << std::hex << row.address;
    EXPECT_EQ(node->tree, row.failure ? nullptr : &tree);
  }
  for (const std::int64_t address : {std::int64_t{-2}, std::int64_t{0xA002}, std::int64_t{1} << 32}) {
    EXPECT_EQ(Refusal([&] { NewIntReg("Reg", address); }), Failure::kAddress) << address;
  }
  for (const std::int64_t length : {0, 9, -4}) {
    EXPECT_EQ(Refusal([&] { NewIntReg("Reg", -1, length); }), Failure::kInvalidArgument) << length;
  }
  EXPECT_EQ(Refusal([&] { NewRegister(NodeKind::FloatReg, "Reg", -1, 6); }), Failure::kInvalidArgument);
  EXPECT_EQ(Refusal([&] { NewRegister(NodeKind::StringReg, "Reg", -1, 6); }), Failure::kInvalidArgument);
}

TEST(RegisterAddresses, MoveWithTheirNodes) {
  FeatureTree tree;
  const NodePtr bank = NewInteger("Bank", std::int64_t{0});
  const NodePtr reg = NewIntReg("Reg", 0xA000);
  tree.Add(reg);
  AddRelated(reg, NodeList::Addresses, bank, nullptr);
  WriteInteger(*reg, 11);
  bank->value = std::int64_t{8};
  EXPECT_EQ(CurrentAddress(*reg), 0xA008);
  EXPECT_EQ(ReadInteger(*reg), 0);
  WriteInteger(*reg, 22);
  EXPECT_EQ(tree.Memory().Load32(0xA000), 11u);
  EXPECT_EQ(tree.Memory().Load32(0xA008), 22u);
  for (const std::int64_t far : {std::int64_t{-0xA001}, std::int64_t{1} << 32, INT64_MAX, INT64_MIN}) {
    bank->value = far;
    EXPECT_EQ(Refusal([&] { ReadInteger(*reg); }), Failure::kAddress) << far;
  }
}

TEST(Registers, KeepTheirValueOnTheWayInAndOut) {
  FeatureTree tree;
  const NodePtr reg = NewIntReg("Reg", 0xA000);
  WriteInteger(*reg, 42);
  tree.Add(reg);
  EXPECT_EQ(tree.Memory().Load32(0xA000), 42u);
  WriteInteger(*reg, 43);
  tree.Remove(reg);
  EXPECT_EQ(ReadInteger(*reg), 43);
  EXPECT_EQ(tree.Memory().Load32(0xA000), 0u);
  tree.Add(NewIntReg("Other", 0xA000));  // the place is free again
}

TEST(Names, AreThoseOfGenICam) {
  for (const char* name : {"", "_A", "1A", "A b", "A.b", "A::b", "\xC3\x84", "EnumEntry_A_B", "A-b"}) {
    EXPECT_EQ(Refusal([&] { NewInteger(name); }), Failure::kName) << name;
  }
  EXPECT_EQ(FullName(*MakeNode(NodeKind::Integer, "aZ_09", NameSpace::Standard)), "Std::aZ_09");
}

TEST(Links, MayNotCloseCircles) {
  const NodePtr a = NewInteger("A");
  const NodePtr b = NewInteger("B", a);
  const NodePtr knife = NewNode(NodeKind::IntSwissKnife, "Knife");
  AddRelated(knife, NodeList::Child, b, nullptr);
  const NodePtr reg = NewIntReg("Reg");
  AddRelated(reg, NodeList::Addresses, knife, nullptr);
  EXPECT_TRUE(DependsOn(*reg, *a));
  EXPECT_FALSE(DependsOn(*a, *reg));
  EXPECT_EQ(Refusal([&] { CheckLink(*a, *a); }), Failure::kCycle);
  EXPECT_EQ(Refusal([&] { CheckLink(*a, *reg); }), Failure::kCycle);
  const NodePtr outer = NewNode(NodeKind::Category, "Outer");
  const NodePtr inner = NewNode(NodeKind::Category, "Inner");
  AddRelated(outer, NodeList::Child, inner, nullptr);
  EXPECT_EQ(Refusal([&] { AddRelated(inner, NodeList::Child, outer, nullptr); }), Failure::kCycle);
  EXPECT_TRUE(inner->children.empty());
  EXPECT_EQ(Refusal([&] { AddRelated(b, NodeList::Selected, a, nullptr); }), Failure::kCycle);
  AddRelated(a, NodeList::Selected, b, nullptr);
  AddRelated(a, NodeList::Invalidator, a, nullptr);  // only informs
  const NodePtr c = NewInteger("C");
  AddRelated(b, NodeList::Selected, c, nullptr);
  EXPECT_EQ(Refusal([&] { AddRelated(c, NodeList::Selected, a, nullptr); }), Failure::kCycle);
  EXPECT_TRUE(Related(*c, NodeList::Selected).empty());
}

TEST(Links, GoOnlyWhereClientsTakeThem) {
  const NodePtr integer = NewInteger("Integer");
  const NodePtr entry = NewEntry("Entry", 0);
  const struct {
    NodePtr node;
    NodeList list;
    NodePtr related;
  } rows[] = {
      {NewNode(NodeKind::Category, "Category"), NodeList::Child, entry},
      {NewNode(NodeKind::Enumeration, "Enumeration"), NodeList::Child, integer},
      {NewNode(NodeKind::IntSwissKnife, "Knife"), NodeList::Child, NewNode(NodeKind::String, "String")},
      {integer, NodeList::Child, NewInteger("Child")},
      {integer, NodeList::Addresses, NewInteger("Address")},
      {NewIntReg("Reg"), NodeList::Addresses, NewNode(NodeKind::Float, "Float")},
      {NewIntReg("Reg"), NodeList::Addresses, NewNode(NodeKind::Command, "Command")},
      {integer, NodeList::Selected, entry},
      {NewNode(NodeKind::Category, "Category"), NodeList::Selected, integer},
      {integer, NodeList::Invalidator, entry},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Refusal([&] { AddRelated(row.node, row.list, row.related, nullptr); }), Failure::kNotSupported)
        << row.node->name << " -> " << row.related->name;
    EXPECT_TRUE(Related(*row.node, row.list).empty());
  }
}

TEST(Links, OfNodesThatGoAreForgotten) {
  FeatureTree tree;
  const NodePtr group = NewNode(NodeKind::Category, "Group");
  const NodePtr selector = NewInteger("Selector");
  const NodePtr node = NewInteger("Node");
  for (const NodePtr& added : {group, selector, node}) tree.Add(added);
  AddRelated(group, NodeList::Child, node, nullptr);
  AddRelated(group, NodeList::Child, node, nullptr);
  EXPECT_EQ(group->children.size(), 1u);
  AddRelated(selector, NodeList::Selected, node, nullptr);
  AddRelated(selector, NodeList::Invalidator, node, nullptr);
  EXPECT_EQ(Refusal([&] { RemoveRelated(selector, NodeList::Selected, group); }), Failure::kNotFound);
  tree.Remove(node);
  for (const NodeList list : {NodeList::Child, NodeList::Selected, NodeList::Invalidator}) {
    EXPECT_TRUE(Related(list == NodeList::Child ? *group : *selector, list).empty());
  }
  FeatureTree other;
  other.Add(node);
  EXPECT_EQ(Refusal([&] { AddRelated(group, NodeList::Child, node, nullptr); }), Failure::kInvalidArgument);
}

TEST(FeatureTree, KeepsValuesOfRegistersThatMoveToPortsAndBack) {
  FeatureTree tree;
  const NodePtr reg = NewIntReg("Reg", 0xA000);
  tree.Add(reg);
  WriteInteger(*reg, 7);
  tree.MoveToPort(*reg, PortKind::Chunk, 1);
  EXPECT_EQ(ReadInteger(*reg), 7);
  EXPECT_EQ(reg->reg->address, 0);
  EXPECT_EQ(tree.Memory().Load32(0xA000), 0u);
  tree.Add(NewIntReg("Other", 0xA000));  // its place is free
  WriteInteger(*reg, 8);
  EXPECT_EQ(tree.Memory().Load32(0), 0u);  // its address is none of the register space

  tree.MoveToDevice(*reg);
  EXPECT_EQ(ReadInteger(*reg), 8);
  EXPECT_EQ(tree.Memory().Load32(static_cast<std::uint64_t>(reg->reg->address)), 8u);
  tree.SetFrozen(true);
  EXPECT_EQ(Refusal([&] { tree.MoveToPort(*reg, PortKind::Event, 1); }), Failure::kWrongState);
}

}  // namespace
}  // namespace Tarn
