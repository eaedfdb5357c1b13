#include "camera/engine/features/user_sets.h"

#include <gtest/gtest.h>

#include "camera/engine/features/standard_features.h"
#include "camera/engine/nodes/make_nodes_test.h"
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

  NodePtr Add(NodePtr node, bool streamable = true) {
    tree_.Add(node);
    node->streamable = streamable;
    return node;
  }

  using Values = std::vector<std::pair<std::string, std::int64_t>>;
  void Set(const Values& values) {
    for (const auto& [name, value] : values) WriteInteger(*tree_.Find(name), value);
  }
  void Expect(const Values& values) const {
    for (const auto& [name, value] : values) EXPECT_EQ(ReadInteger(*tree_.Find(name)), value) << name;
  }

  FeatureTree tree_;
  RegisterFile registers_{tree_};
  UserSets sets_{tree_, registers_};
};

TEST_F(UserSetsTest, FindsAnOrderInWhichLimitsAllowTheValues) {
  Publish();
  // Each pair is full to the brim, so the extent can only grow when the offset shrank before, and the other
  // way round.
  const Values full{{"Width", 320}, {"OffsetX", 320}, {"Height", 100}, {"OffsetY", 380}};
  Set(full);
  sets_.Save(UserSet::UserSet1);
  for (int i = 0; i < 2; ++i) {
    sets_.Load(UserSet::Default, {});
    Expect({{"Width", 640}, {"OffsetX", 0}, {"Height", 480}, {"OffsetY", 0}});
    sets_.Load(UserSet::UserSet1, {});
    Expect(full);
  }
}

TEST_F(UserSetsTest, LeavesWhatIsRefusedAndReportsTheRest) {
  const NodePtr lock = Add(NewInteger("Lock"), false);
  Add(NewIntReg("Locked"))->is_locked = lock;
  Add(NewRegister(NodeKind::StringReg, "Text", -1, 8));
  Add(NewIntReg("Fixed"))->reg->access = AccessMode::ReadOnly;
  Add(NewIntReg("Passing"), false);
  Publish();
  Set({{"Locked", 7}, {"Fixed", 7}, {"Passing", 7}});
  WriteText(*tree_.Find("Text"), "seven");
  lock->value = std::int64_t{1};
  std::vector<std::string> taken;
  for (const PlacedRegister& reg : sets_.Load(UserSet::Default, {})) taken.push_back(reg.node->name);
  EXPECT_EQ(std::ranges::count(taken, "Text"), 1);
  EXPECT_EQ(std::ranges::count(taken, "Locked"), 0);
  EXPECT_EQ(ReadText(*tree_.Find("Text")), "");
  Expect({{"Locked", 7}, {"Fixed", 7}, {"Passing", 7}});
  lock->value = std::int64_t{0};
  sets_.Load(UserSet::Default, {});
  Expect({{"Locked", 0}});
}

TEST_F(UserSetsTest, TouchesOnlyTheBitsOfItsFeatures) {
  Publish();
  Set({{"GevSCPSPacketSize", 1000}, {"GevSCPSDoNotFragment", 1}});
  sets_.Save(UserSet::UserSet1);
  sets_.Load(UserSet::Default, {});
  Expect({{"GevSCPSDoNotFragment", 0}});
  constexpr std::uint32_t kOther = 1u << 29;  // of no feature
  tree_.Memory().Store32(Bootstrap::kStreamPacketSize, kOther);
  sets_.Load(UserSet::UserSet1, {});
  EXPECT_EQ(tree_.Memory().Load32(Bootstrap::kStreamPacketSize), kOther | 1u << 30 | 1000u);
}

TEST_F(UserSetsTest, HoldsEveryValueBehindASelector) {
  Publish();
  const auto chunk = [](std::uint32_t n) { return ManufacturerRegister::kChunkEnable + 4 * n; };
  for (const std::uint32_t n : {1u, 3u}) tree_.Memory().Store32(chunk(n), 0);
  sets_.Save(UserSet::UserSet1);
  for (const UserSet set : {UserSet::Default, UserSet::UserSet1}) {
    sets_.Load(set, {});
    for (std::uint32_t n = 0; n < 4; ++n) {
      EXPECT_EQ(tree_.Memory().Load32(chunk(n)), set == UserSet::Default || n % 2 == 0) << n;
    }
  }
}

TEST_F(UserSetsTest, OutlivesChangesOfTheTree) {
  const NodePtr kept = Add(NewIntReg("Kept", 0xA000));
  Publish();
  Set({{"Kept", 3}});
  sets_.Save(UserSet::UserSet1);
  const auto load_instead = [&](const NodePtr& node) {
    tree_.Remove(tree_.Find("Kept"));
    Add(node);
    Set({{node->name, 8}});
    Publish();
    Set({{node->name, 9}});
    sets_.Load(UserSet::UserSet1, {});
    return ReadInteger(*node);
  };
  EXPECT_EQ(load_instead(NewIntReg("Kept", 0xA000, 8)), 9) << "another length cannot take the bytes";
  EXPECT_EQ(load_instead(kept), 3);
  EXPECT_EQ(load_instead(NewIntReg("Other", 0xA000)), 8) << "another feature begins with its own value";
}

TEST_F(UserSetsTest, TellsClientsOnceWhichRegistersToReadAgain) {
  const NodePtr reg = Add(NewIntReg("Behind"), false);
  Add(NewInteger("Feature", reg));
  for (int starts = 0; starts < 2; ++starts) Publish();
  EXPECT_EQ(Related(*reg, NodeList::Invalidator), std::vector{tree_.Find("UserSetLoad")});
}

}  // namespace
}  // namespace Tarn
