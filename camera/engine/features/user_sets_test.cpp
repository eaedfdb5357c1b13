#include "camera/engine/features/user_sets.h"

#include <gtest/gtest.h>

#include "camera/engine/features/standard_features.h"
#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_items.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

class UserSetsTest : public testing::Test {
 protected:
  UserSetsTest() { AddStandardFeatures(tree_, SensorFormat{0x01080001, "Mono8", 640, 480, true}); }

  /// As a start of the device does.
  void Publish() {
    InvalidateByUserSets(tree_);
    registers_.Index({true, 1500}, 1000);
    sets_.Complete();
  }

  NodePtr AddStreamable(NodePtr node) {
    tree_.Add(node);
    node->streamable = true;
    return node;
  }

  void Set(const std::string& name, std::int64_t value) { WriteInteger(*tree_.Find(name), value); }
  std::int64_t Get(const std::string& name) const { return ReadInteger(*tree_.Find(name)); }

  /// Names of the registers that took their values, in order.
  std::vector<std::string> Load(UserSet set) {
    std::vector<std::string> names;
    for (const PlacedRegister& reg : sets_.Load(set, {})) names.push_back(reg.node->name);
    return names;
  }

  FeatureTree tree_;
  RegisterFile registers_{tree_};
  UserSets sets_{tree_, registers_};
};

TEST_F(UserSetsTest, FindsAnOrderInWhichLimitsAllowTheValues) {
  Publish();
  // Each pair is full to the brim, so the extent can only grow when the offset shrank before, and the other
  // way round.
  Set("Width", 320);
  Set("OffsetX", 320);
  Set("Height", 100);
  Set("OffsetY", 380);
  sets_.Save(UserSet::UserSet1);
  for (int i = 0; i < 2; ++i) {
    Load(UserSet::Default);
    EXPECT_EQ(Get("Width"), 640);
    EXPECT_EQ(Get("OffsetX"), 0);
    EXPECT_EQ(Get("Height"), 480);
    EXPECT_EQ(Get("OffsetY"), 0);
    Load(UserSet::UserSet1);
    EXPECT_EQ(Get("Width"), 320);
    EXPECT_EQ(Get("OffsetX"), 320);
    EXPECT_EQ(Get("Height"), 100);
    EXPECT_EQ(Get("OffsetY"), 380);
  }
}

TEST_F(UserSetsTest, LeavesWhatIsRefusedAndReportsTheRest) {
  const NodePtr lock = NewInteger("Lock");
  const NodePtr locked = NewIntReg("Locked");
  locked->is_locked = lock;
  tree_.Add(lock);
  AddStreamable(locked);
  AddStreamable(NewRegister(NodeKind::StringReg, "Text", -1, 8));
  AddStreamable(NewIntReg("Fixed"))->reg->access = AccessMode::ReadOnly;
  tree_.Add(NewIntReg("Passing"));
  Publish();
  for (const char* name : {"Locked", "Fixed", "Passing"}) Set(name, 7);
  WriteText(*tree_.Find("Text"), "seven");
  lock->value = std::int64_t{1};
  const std::vector<std::string> taken = Load(UserSet::Default);
  EXPECT_EQ(std::ranges::count(taken, "Text"), 1);
  EXPECT_EQ(std::ranges::count(taken, "Locked"), 0);
  EXPECT_EQ(ReadText(*tree_.Find("Text")), "");
  for (const char* name : {"Locked", "Fixed", "Passing"}) EXPECT_EQ(Get(name), 7) << name;
  lock->value = std::int64_t{0};
  Load(UserSet::Default);
  EXPECT_EQ(Get("Locked"), 0);
}

TEST_F(UserSetsTest, TouchesOnlyTheBitsOfItsFeatures) {
  Publish();
  Set("GevSCPSPacketSize", 1000);
  Set("GevSCPSDoNotFragment", 1);
  sets_.Save(UserSet::UserSet1);
  Load(UserSet::Default);
  EXPECT_EQ(Get("GevSCPSDoNotFragment"), 0);
  constexpr std::uint32_t kOther = 1u << 29;  // of no feature
  tree_.Memory().Store32(Bootstrap::kStreamPacketSize, kOther);
  Load(UserSet::UserSet1);
  EXPECT_EQ(tree_.Memory().Load32(Bootstrap::kStreamPacketSize), kOther | 1u << 30 | 1000u);
}

TEST_F(UserSetsTest, HoldsEveryValueBehindASelector) {
  const NodePtr selector = NewInteger("Selector");
  selector->min = std::int64_t{0};
  selector->max = std::int64_t{2};
  const NodePtr offset = NewNode(NodeKind::IntSwissKnife, "Offset");
  const NodePtr gain = NewIntReg("Gain", 0xB000);
  for (const NodePtr& node : {selector, offset, gain}) tree_.Add(node);
  AddRelated(offset, NodeList::Child, selector, nullptr);
  SetTextItem(*offset, NodeItem::Formula, "Selector * 4");
  AddRelated(gain, NodeList::Addresses, offset, nullptr);
  const NodePtr feature = AddStreamable(NewInteger("GainFeature", gain));
  Publish();
  SparseMemory& memory = tree_.Memory();
  for (std::uint32_t i = 0; i < 3; ++i) memory.Store32(0xB000 + i * 4, 10 + i);
  sets_.Save(UserSet::UserSet1);
  Load(UserSet::Default);
  for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(memory.Load32(0xB000 + i * 4), 0u) << i;
  Load(UserSet::UserSet1);
  for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(memory.Load32(0xB000 + i * 4), 10 + i) << i;
}

TEST_F(UserSetsTest, OutlivesChangesOfTheTree) {
  NodePtr kept = AddStreamable(NewIntReg("Kept", 0xA000));
  Publish();
  Set("Kept", 3);
  sets_.Save(UserSet::UserSet1);
  tree_.Remove(kept);
  // Another register in its place is another feature, and begins with its own value.
  AddStreamable(NewIntReg("Other", 0xA000));
  Set("Other", 8);
  Publish();
  Set("Other", 9);
  Load(UserSet::UserSet1);
  EXPECT_EQ(Get("Other"), 8);
  tree_.Remove(tree_.Find("Other"));
  // The same name with another length cannot take the bytes.
  AddStreamable(NewIntReg("Kept", 0xA000, 8));
  Publish();
  Set("Kept", 5);
  Load(UserSet::UserSet1);
  EXPECT_EQ(Get("Kept"), 5);
  tree_.Remove(tree_.Find("Kept"));
  tree_.Add(kept);
  Publish();
  Load(UserSet::UserSet1);
  EXPECT_EQ(Get("Kept"), 3);
}

TEST_F(UserSetsTest, TellsClientsOnceWhichRegistersToReadAgain) {
  const NodePtr reg = NewIntReg("Behind");
  tree_.Add(reg);
  AddStreamable(NewInteger("Feature", reg));
  const NodePtr beside = NewIntReg("Beside");
  tree_.Add(beside);
  Publish();
  Publish();
  EXPECT_EQ(Related(*reg, NodeList::Invalidator), std::vector{tree_.Find("UserSetLoad")});
  EXPECT_TRUE(Related(*beside, NodeList::Invalidator).empty());
}

}  // namespace
}  // namespace Tarn
