#include "camera/engine/nodes/feature_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/nodes/register_value.h"

namespace Tarn {
namespace {

std::optional<Failure> Refused(FeatureTree& tree, const NodePtr& node) {
  return Refusal([&] { tree.Add(node); });
}
std::optional<Failure> Refused(const NodePtr& node, NodeList list, const NodePtr& related) {
  return Refusal([&] { AddRelated(node, list, related, nullptr); });
}

TEST(FeatureTree, HasEachNameOnce) {
  FeatureTree tree, other;
  const NodePtr node = Put(tree, NewInteger("Lamp"));
  EXPECT_EQ(tree.Find("Lamp"), node);
  EXPECT_EQ(Refused(tree, node), Failure::kExists);
  EXPECT_EQ(Refused(tree, NewInteger("Lamp")), Failure::kExists);
  EXPECT_EQ(Refused(tree, NewInteger("Device")), Failure::kExists);  // clients know the port by this name
  EXPECT_EQ(Refused(other, node), Failure::kExists);
  EXPECT_EQ(Refusal([&] { other.Remove(node); }), Failure::kNotFound);
  tree.Remove(node);
  EXPECT_EQ(tree.Find("Lamp"), nullptr);
  EXPECT_EQ(Refused(other, node), std::nullopt);
}

TEST(FeatureTree, HasTheEntriesOfItsEnumerations) {
  const NodePtr mode = NewEnumeration("Mode", {}, {{"Off", 0}, {"On", 1}});
  const NodePtr off = mode->children[0];
  const NodePtr strobe = NewEntry("Strobe", 2);
  {
    FeatureTree tree;
    tree.Add(mode);
    EXPECT_EQ(tree.Find("Off"), off);
    AddRelated(mode, NodeList::Child, strobe, off);
    EXPECT_EQ(tree.Find("Strobe"), strobe);
    EXPECT_EQ(mode->children[0], strobe);
    EXPECT_EQ(Refused(mode, NodeList::Child, NewEntry("Strobe", 3)), Failure::kExists);
    tree.Remove(off);
    EXPECT_EQ(mode->children.size(), 2u);
    Link(mode, NodeList::Child, off);  // as free as any other
    EXPECT_EQ(tree.Find("Off"), off);
    tree.Remove(mode);
    EXPECT_TRUE(tree.Nodes().empty());
    EXPECT_EQ(strobe->tree, nullptr);
    tree.Add(mode);
  }
  for (const NodePtr& left : {mode, off, strobe}) EXPECT_EQ(left->tree, nullptr);
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
    const NodePtr first = Put(tree, NewEnumeration("First", {}, {{"Same", 0}}));
    const NodePtr second = Put(tree, NewEnumeration("Second", {}, {{"Same", 0}}));
    const NodePtr node = Put(tree, NewInteger("Same"));
    const NodePtr entry = first->children[0];
    const NodePtr other = second->children[0];
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

TEST(FeatureTree, RefusesEverythingWhileFrozen) {
  FeatureTree tree;
  const NodePtr member = NewInteger("Member");
  const NodePtr group = Link(Put(tree, NewNode(NodeKind::Category, "Group")), NodeList::Child, member);
  const NodePtr reg = Put(tree, NewIntReg("Reg"));
  tree.SetFrozen(true);
  EXPECT_EQ(Refused(tree, member), Failure::kWrongState);
  EXPECT_EQ(Refusal([&] { tree.Remove(group); }), Failure::kWrongState);
  EXPECT_EQ(Refusal([&] { RemoveRelated(group, NodeList::Child, member); }), Failure::kWrongState);
  EXPECT_EQ(Refused(group, NodeList::Child, NewInteger("X")), Failure::kWrongState);
  EXPECT_EQ(Refusal([&] { tree.MoveToPort(*reg, PortKind::Event, 1); }), Failure::kWrongState);
  EXPECT_EQ(tree.Find("Group"), group);
  EXPECT_EQ(Related(*group, NodeList::Child), std::vector<NodePtr>{member});
}

TEST(RegisterAddresses, AreAssignedIncreasingAndAligned) {
  FeatureTree tree;
  const struct {
    std::int64_t address, length, offset;
  } rows[] = {{-1, 2, 0}, {kAutomaticStart + 8, 4, 8}, {-1, 4, 4}, {-1, 8, 16}, {-1, 4, 24}};
  for (const auto& row : rows) {
    const std::string name = "Reg" + std::to_string(row.offset);
    const NodePtr reg = Put(tree, NewIntReg(name, row.address, row.length));
    EXPECT_EQ(CurrentAddress(*reg), static_cast<std::int64_t>(kAutomaticStart) + row.offset) << name;
  }
}

TEST(RegisterAddresses, AreUsedAgain) {
  FeatureTree tree;
  const NodePtr kept = Put(tree, NewIntReg("Kept"));
  const NodePtr text = NewRegister(NodeKind::StringReg, "Text", -1, 0x10000);
  WriteText(*text, "text");
  // More often than there is room for.
  for (std::uint64_t i = 0; i < (kManufacturerRegisters - kAutomaticStart) / 0x10000 + 2; ++i) {
    text->reg->address = -1;
    ASSERT_EQ(Refused(tree, text), std::nullopt) << i;
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
    std::int64_t address, length;
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
    const std::string name = "Reg" + std::to_string(row.address) + "_" + std::to_string(row.length);
    const NodePtr node = NewIntReg(name, row.address, row.length);
    EXPECT_EQ(Refused(tree, node), row.failure) << std::hex << row.address;
    EXPECT_EQ(node->tree, row.failure ? nullptr : &tree);
  }
}

TEST(RegisterAddresses, AreOfWholeWordsAndLengthsOfTheKind) {
  const struct {
    NodeKind kind;
    std::int64_t address, length;
    Failure failure;
  } rows[] = {
      {NodeKind::IntReg, -2, 4, Failure::kAddress},
      {NodeKind::IntReg, 0xA002, 4, Failure::kAddress},
      {NodeKind::IntReg, 1LL << 32, 4, Failure::kAddress},
      {NodeKind::IntReg, -1, 0, Failure::kInvalidArgument},
      {NodeKind::IntReg, -1, 9, Failure::kInvalidArgument},
      {NodeKind::IntReg, -1, -4, Failure::kInvalidArgument},
      {NodeKind::FloatReg, -1, 6, Failure::kInvalidArgument},
      {NodeKind::StringReg, -1, 6, Failure::kInvalidArgument},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Refusal([&] { NewRegister(row.kind, "Reg", row.address, row.length); }), row.failure)
        << row.address << ' ' << row.length;
  }
}

TEST(RegisterAddresses, MoveWithTheirNodes) {
  FeatureTree tree;
  const NodePtr bank = NewInteger("Bank");
  const NodePtr reg = Link(Put(tree, NewIntReg("Reg", 0xA000)), NodeList::Addresses, bank);
  WriteInteger(*reg, 11);
  bank->value = std::int64_t{8};
  EXPECT_EQ(ReadInteger(*reg), 0);
  WriteInteger(*reg, 22);
  EXPECT_EQ(tree.Memory().Load32(0xA000), 11u);
  EXPECT_EQ(tree.Memory().Load32(0xA008), 22u);
  for (const std::int64_t far : {std::int64_t{-0xA001}, std::int64_t{1} << 32, INT64_MAX, INT64_MIN}) {
    bank->value = far;
    EXPECT_EQ(Refusal([&] { ReadInteger(*reg); }), Failure::kAddress) << far;
  }
}

TEST(Registers, KeepTheirValueWhereverTheyGo) {
  FeatureTree tree;
  const NodePtr reg = NewIntReg("Reg", 0xA000);
  WriteInteger(*reg, 42);
  tree.Add(reg);
  EXPECT_EQ(tree.Memory().Load32(0xA000), 42u);
  tree.Remove(reg);
  EXPECT_EQ(ReadInteger(*reg), 42);
  EXPECT_EQ(tree.Memory().Load32(0xA000), 0u);
  tree.Add(reg);

  tree.MoveToPort(*reg, PortKind::Chunk, 1);
  EXPECT_EQ(ReadInteger(*reg), 42);
  EXPECT_EQ(tree.Memory().Load32(0xA000), 0u);
  tree.Add(NewIntReg("Other", 0xA000));  // its place is free
  WriteInteger(*reg, 8);
  EXPECT_EQ(tree.Memory().Load32(0), 0u);  // its address is none of the register space
  tree.MoveToDevice(*reg);
  EXPECT_EQ(ReadInteger(*reg), 8);
  EXPECT_EQ(tree.Memory().Load32(static_cast<std::uint64_t>(reg->reg->address)), 8u);
}

TEST(Names, AreThoseOfGenICam) {
  for (const char* name : {"", "_A", "1A", "A.b", "A::b", "\xC3\x84", "EnumEntry_A_B", "A-b"}) {
    EXPECT_EQ(Refusal([&] { NewInteger(name); }), Failure::kName) << name;
  }
  EXPECT_EQ(FullName(*MakeNode(NodeKind::Integer, "aZ_09", NameSpace::Standard)), "Std::aZ_09");
}

TEST(Links, MayNotCloseCircles) {
  const NodePtr a = NewInteger("A");
  const NodePtr b = NewInteger("B", a);
  const NodePtr c = NewInteger("C");
  const NodePtr reg = Link(NewIntReg("Reg"), NodeList::Addresses, NewKnife("Knife", {b}, ""));
  EXPECT_FALSE(DependsOn(*a, *reg));
  EXPECT_EQ(Refusal([&] { CheckLink(*a, *a); }), Failure::kCycle);
  EXPECT_EQ(Refusal([&] { CheckLink(*a, *reg); }), Failure::kCycle);
  const NodePtr inner = NewNode(NodeKind::Category, "Inner");
  const NodePtr outer = Link(NewNode(NodeKind::Category, "Outer"), NodeList::Child, inner);
  EXPECT_EQ(Refused(inner, NodeList::Child, outer), Failure::kCycle);
  EXPECT_EQ(Refused(b, NodeList::Selected, a), Failure::kCycle);
  Link(a, NodeList::Invalidator, a);  // only informs
  Link(a, NodeList::Selected, b);
  Link(b, NodeList::Selected, c);
  EXPECT_EQ(Refused(c, NodeList::Selected, a), Failure::kCycle);
  EXPECT_TRUE(inner->children.empty() && c->selected.empty());
}

TEST(Links, GoOnlyWhereClientsTakeThem) {
  const NodePtr integer = NewInteger("Integer");
  const NodePtr entry = NewEntry("Entry", 0);
  const NodePtr category = NewNode(NodeKind::Category, "Category");
  const struct {
    NodePtr node;
    NodeList list;
    NodePtr related;
  } rows[] = {
      {category, NodeList::Child, entry},
      {NewEnumeration("Enumeration", {}, {}), NodeList::Child, integer},
      {NewKnife("Knife", {}, ""), NodeList::Child, NewNode(NodeKind::String, "String")},
      {integer, NodeList::Child, NewInteger("Child")},
      {integer, NodeList::Addresses, NewInteger("Address")},
      {NewIntReg("Reg"), NodeList::Addresses, NewNode(NodeKind::Float, "Float")},
      {NewIntReg("Reg"), NodeList::Addresses, NewNode(NodeKind::Command, "Command")},
      {integer, NodeList::Selected, entry},
      {category, NodeList::Selected, integer},
      {integer, NodeList::Invalidator, entry},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Refused(row.node, row.list, row.related), Failure::kNotSupported)
        << row.node->name << " -> " << row.related->name;
    EXPECT_TRUE(Related(*row.node, row.list).empty());
  }
}

TEST(Links, OfNodesThatGoAreForgotten) {
  FeatureTree tree, other;
  const NodePtr node = Put(tree, NewInteger("Node"));
  const NodePtr group = Link(Put(tree, NewNode(NodeKind::Category, "Group")), NodeList::Child, node);
  Link(group, NodeList::Child, node);
  EXPECT_EQ(group->children.size(), 1u);
  const NodePtr selector = Link(Put(tree, NewInteger("Selector")), NodeList::Selected, node);
  Link(selector, NodeList::Invalidator, node);
  EXPECT_EQ(Refusal([&] { RemoveRelated(selector, NodeList::Selected, group); }), Failure::kNotFound);
  tree.Remove(node);
  EXPECT_TRUE(group->children.empty() && selector->selected.empty() && selector->invalidators.empty());
  other.Add(node);
  EXPECT_EQ(Refused(group, NodeList::Child, node), Failure::kInvalidArgument);
}

}  // namespace
}  // namespace Tarn
