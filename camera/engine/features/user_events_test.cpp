#include "camera/engine/features/user_events.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "camera/base/engine_error.h"
#include "camera/engine/features/standard_features.h"
#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_links.h"

namespace Tarn {
namespace {

using Entries = std::map<std::int64_t, std::string>;
using Sources = std::map<std::string, std::vector<std::uint16_t>>;

class UserEventsTest : public ::testing::Test {
 protected:
  UserEventsTest() { AddStandardFeatures(tree_, std::nullopt); }

  NodePtr Add(NodePtr node, std::int64_t event_id = 0) {
    tree_.Add(node);
    node->event_id = event_id;
    return node;
  }
  NodePtr Define(const std::string& name, std::int64_t number) {
    const NodePtr event = Add(NewInteger(name, number));
    AddRelated(tree_.Find("EventControl"), NodeList::Child, event, nullptr);
    return event;
  }

  /// What the selector shows beyond the device's own events, by number.
  Entries Shown() const {
    Entries entries;
    for (const NodePtr& entry : tree_.Find("EventSelector")->children) {
      const auto number = std::get<std::int64_t>(entry->value);
      if (number >= 0x9000) entries[number] = entry->name;
    }
    return entries;
  }
  /// The events of each register.
  Sources Found() const {
    Sources sources;
    for (const auto& [reg, numbers] : FindEventSources(tree_)) sources[reg->name] = numbers;
    return sources;
  }

  FeatureTree tree_;
};

TEST_F(UserEventsTest, BelongToTheLongestNameAndComeFromTheRegisterBehind) {
  Define("EventMotor", 0x9100);
  Define("EventMotorStop", 0x9101);
  Add(NewInteger("EventNo", std::int64_t{0x9102}));  // not in the category
  const NodePtr reg = Add(NewIntReg("Raw", 0xA000));
  const NodePtr middle = Add(NewInteger("Middle", reg));
  Add(NewInteger("EventMotorPosition", middle));
  Add(NewInteger("Second", reg), 0x9200);
  Add(NewIntReg("EventMotorStopReason", 0xA004));
  Add(NewIntReg("Motor", 0xA008));
  const NodePtr fire = Add(NewNode(NodeKind::Command, "EventMotorFire", Add(NewIntReg("FireValue", 0xA00C))));
  for (int starts = 0; starts < 2; ++starts) {
    DefineUserEvents(tree_);
    EXPECT_EQ(Shown(), (Entries{{0x9100, "Motor"}, {0x9101, "MotorStop"}, {0x9200, "Second"}}));
  }
  for (const NodePtr& node : {reg, middle, fire}) EXPECT_EQ(node->event_id, 0x9100) << node->name;
  const Sources sources = Found();
  EXPECT_EQ(sources.at("Raw"), (std::vector<std::uint16_t>{0x9100, 0x9200}));
  EXPECT_EQ(sources.at("EventMotorStopReason"), std::vector<std::uint16_t>{0x9101});
  EXPECT_FALSE(sources.contains("Motor"));
}

TEST_F(UserEventsTest, AreNamedByTheFirstNodeThatCarriesTheirId) {
  Add(NewIntReg("Temperature", 0xA000), 0x9300);
  Add(NewIntReg("Fan", 0xA004), 0x9300);
  Add(NewIntReg("Exposure", 0xA008), 0x9003);  // hears of the device's own event, and does not cause it
  DefineUserEvents(tree_);
  EXPECT_EQ(Shown(), (Entries{{0x9300, "Temperature"}}));
  EXPECT_EQ(Found(), (Sources{{"Temperature", {0x9300}}, {"Fan", {0x9300}}}));
}

TEST_F(UserEventsTest, RefuseNumbersThatCannotBe) {
  Define("EventOne", 0x9100);
  for (const std::int64_t number : {0x8FFF, 0x10000, -1, 0x9001, 0x9100}) {
    const NodePtr event = Define("EventTwo", number);
    EXPECT_EQ(Refusal([&] { DefineUserEvents(tree_); }), Failure::kInvalidArgument) << number;
    tree_.Remove(event);
  }
  Define("EventTwo", 0xFFFF);
  DefineUserEvents(tree_);
  EXPECT_EQ(Shown(), (Entries{{0x9100, "One"}, {0xFFFF, "Two"}}));
}

}  // namespace
}  // namespace Tarn
