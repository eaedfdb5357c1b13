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

using Numbers = std::vector<std::uint16_t>;

class UserEventsTest : public ::testing::Test {
 protected:
  UserEventsTest() { AddStandardFeatures(tree_, std::nullopt); }

  NodePtr Add(NodePtr node) {
    tree_.Add(node);
    return node;
  }

  NodePtr Define(const std::string& name, std::int64_t number) {
    const NodePtr event = Add(NewInteger(name, number));
    AddRelated(tree_.Find("EventControl"), NodeList::Child, event, nullptr);
    return event;
  }

  /// What the selector shows beyond the device's own events, by number.
  std::map<std::int64_t, std::string> Entries() const {
    std::map<std::int64_t, std::string> entries;
    for (const NodePtr& entry : tree_.Find("EventSelector")->children) {
      const auto number = std::get<std::int64_t>(entry->value);
      if (number >= 0x9000) entries[number] = entry->name;
    }
    return entries;
  }

  FeatureTree tree_;
};

using Entry = std::map<std::int64_t, std::string>;

TEST_F(UserEventsTest, BelongToTheLongestName) {
  Define("EventMotor", 0x9100);
  Define("EventMotorStop", 0x9101);
  const NodePtr reg = Add(NewIntReg("EventMotorPosition", 0xA000));
  const NodePtr stop = Add(NewIntReg("EventMotorStopReason", 0xA004));
  const NodePtr other = Add(NewIntReg("Motor", 0xA008));
  Add(NewInteger("EventNo", std::int64_t{0x9102}));  // not in the category
  for (int starts = 0; starts < 2; ++starts) {
    DefineUserEvents(tree_);
    EXPECT_EQ(Entries(), (Entry{{0x9100, "Motor"}, {0x9101, "MotorStop"}}));
  }
  EXPECT_EQ(reg->event_id, 0x9100);
  EXPECT_EQ(stop->event_id, 0x9101);
  EXPECT_EQ(other->event_id, 0);
  const EventSources sources = FindEventSources(tree_);
  EXPECT_EQ(sources.size(), 2u);
  EXPECT_EQ(sources.at(reg.get()), Numbers{0x9100});
  EXPECT_EQ(sources.at(stop.get()), Numbers{0x9101});
}

TEST_F(UserEventsTest, ComeFromTheRegisterBehindAChain) {
  Define("EventMotor", 0x9100);
  const NodePtr reg = Add(NewIntReg("Raw", 0xA000));
  const NodePtr middle = Add(NewInteger("Middle", reg));
  Add(NewInteger("EventMotorPosition", middle));
  const NodePtr fire_reg = Add(NewIntReg("FireValue", 0xA004));
  const NodePtr fire = Add(NewNode(NodeKind::Command, "EventMotorFire", fire_reg));
  const NodePtr second = Add(NewInteger("Second", reg));
  second->event_id = 0x9200;
  DefineUserEvents(tree_);
  EXPECT_EQ(middle->event_id, 0x9100);
  EXPECT_EQ(reg->event_id, 0x9100);
  EXPECT_EQ(fire->event_id, 0x9100);
  EXPECT_EQ(FindEventSources(tree_).at(reg.get()), (Numbers{0x9100, 0x9200}));
}

TEST_F(UserEventsTest, AreNamedByTheFirstNodeThatCarriesTheirId) {
  const NodePtr first = Add(NewIntReg("Temperature", 0xA000));
  const NodePtr second = Add(NewIntReg("Fan", 0xA004));
  const NodePtr frame = Add(NewIntReg("Exposure", 0xA008));
  first->event_id = second->event_id = 0x9300;
  frame->event_id = 0x9003;  // hears of the device's own event, and does not cause it
  DefineUserEvents(tree_);
  EXPECT_EQ(Entries(), (Entry{{0x9300, "Temperature"}}));
  const EventSources sources = FindEventSources(tree_);
  EXPECT_EQ(sources.at(first.get()), Numbers{0x9300});
  EXPECT_EQ(sources.at(second.get()), Numbers{0x9300});
  EXPECT_FALSE(sources.contains(frame.get()));
}

TEST_F(UserEventsTest, RefuseNumbersThatCannotBe) {
  const struct {
    const char* name;
    std::int64_t number;
  } rows[] = {{"EventLow", 0x8FFF}, {"EventHigh", 0x10000}, {"EventNegative", -1}, {"EventOwn", 0x9001}};
  for (const auto& row : rows) {
    const NodePtr event = Define(row.name, row.number);
    EXPECT_EQ(Refusal([&] { DefineUserEvents(tree_); }), Failure::kInvalidArgument) << row.name;
    tree_.Remove(event);
  }
  Define("EventOne", 0x9100);
  const NodePtr twin = Define("EventTwo", 0x9100);
  EXPECT_EQ(Refusal([&] { DefineUserEvents(tree_); }), Failure::kInvalidArgument);
  twin->value = std::int64_t{0x9101};
  DefineUserEvents(tree_);
  EXPECT_EQ(Entries(), (Entry{{0x9100, "One"}, {0x9101, "Two"}}));
}

}  // namespace
}  // namespace Tarn
