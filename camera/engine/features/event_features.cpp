// Events as features: which there are, which the client wants, and what an event message carries.
//
// Clients find an event by its number, which the nodes that belong to it show as their event id. When a
// message with the number comes in, they read these nodes anew; those on the event's port out of the message
// itself. EventSelector's entries have the events' numbers, so that the notification of each lies at an
// address that follows from its number alone. What programs define themselves: see user_events.h.

#include "camera/engine/features/event_features.h"

#include "camera/engine/features/feature_parts.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

using enum Visibility;
using enum AccessMode;

// Places of fields in an event message's standard form, from the event's beginning. In the extended form the
// timestamp lies behind a block id of eight bytes.
constexpr std::uint32_t kBlockWordAt = 4;  // the channel, then the block id
constexpr BitRange kBlockId{16, 31};
constexpr std::uint32_t kLongBlockIdAt = 8;
constexpr std::uint32_t kTimestampAt = 8;

struct OwnEvent {
  const char* name;
  std::uint16_t number;
  bool stream_only;
  bool has_block;  ///< tells which frame it is about
  const char* tool_tip;
};

constexpr OwnEvent kOwnEvents[] = {
    {"AcquisitionStart", EventNumber::kAcquisitionStart, true, false, "The acquisition started"},
    {"AcquisitionEnd", EventNumber::kAcquisitionEnd, true, false, "The acquisition ended"},
    {"FrameStart", EventNumber::kFrameStart, true, true, "A frame begins to be sent"},
    {"FrameEnd", EventNumber::kFrameEnd, true, true, "A frame was sent to its end"},
    {"PrimaryApplicationSwitch", EventNumber::kPrimaryApplicationSwitch, false, false,
     "Another client took control over"},
    {"ActionLate", EventNumber::kActionLate, false, false,
     "A scheduled action came when its time had passed"},
};

/// Adds what an event's message carries.
/// \param extended  whether messages have the long form; null: never
class EventData {
 public:
  EventData(FeatureBuilder& add, const OwnEvent& event, const NodePtr& extended)
      : add_(add), event_(event), name_(std::string("Event") + event.name), extended_(extended) {}

  void Add(const NodePtr& long_form_offset) {
    add_.Category(name_ + "Data", "EventControl", Expert);
    Tag(ReadOnlyNode(add_.Integer(name_, std::int64_t{event_.number}, Expert, event_.tool_tip)));
    const NodePtr timestamp = Tag(
        Unit(OnEventPort(add_.IntRegister(name_ + "Timestamp", kTimestampAt, 8, Expert, "When it happened")),
             "ns"));
    if (long_form_offset) timestamp->reg->address_nodes.push_back(long_form_offset);
    if (event_.has_block) AddBlock();
  }

 private:
  void AddBlock() {
    const NodePtr standard =
        Tag(OnEventPort(add_.Value(name_ + "BlockId16", kBlockWordAt, 4, ReadOnly, kBlockId)));
    const NodePtr extended = Tag(OnEventPort(add_.Value(name_ + "BlockId64", kLongBlockIdAt, 8, ReadOnly)));
    const NodePtr choice =
        Tag(add_.Formula(name_ + "BlockId", {extended_, extended, standard},
                         extended_->name + " = 1 ? " + extended->name + " : " + standard->name));
    Tag(add_.Integer(name_ + "FrameID", choice, Expert, "Block id of the frame"));
  }

  NodePtr OnEventPort(NodePtr node) { return OnPort(std::move(node), PortKind::Event, event_.number); }

  NodePtr Tag(NodePtr node) {
    node->event_id = event_.number;
    return node;
  }

  FeatureBuilder& add_;
  const OwnEvent& event_;
  const std::string name_;
  const NodePtr extended_;
};

void AddNotification(FeatureBuilder& add, FeatureTree& tree) {
  const NodePtr selector =
      add.Enumeration("EventSelector", std::int64_t{EventNumber::kPrimaryApplicationSwitch}, {}, Expert,
                      "Event that EventNotification is about");
  const NodePtr value = add.Value("EventNotificationValue", NotificationRegister(0), 4, ReadWrite);
  value->reg->address_nodes.push_back(
      add.Formula("EventNotificationOffset", {selector}, "EventSelector * 4"));
  const NodePtr notification = add.Enumeration("EventNotification", value, {{"Off", 0}, {"On", 1}}, Expert,
                                               "Whether the client is told when the selected event happens");
  AddRelated(selector, NodeList::Selected, notification, nullptr);
  // Nobody has to ask for what the standard has sent unasked.
  for (const std::uint16_t number : {EventNumber::kPrimaryApplicationSwitch, EventNumber::kActionLate}) {
    tree.Memory().Store32(NotificationRegister(number), 1);
  }
}

}  // namespace

void AddMessageChannel(FeatureBuilder& add) {
  const NodePtr port =
      add.Value("GevMCPHostPortValue", Bootstrap::kMessagePort, 4, ReadWrite, BitRange{16, 31});
  add.Integer("GevMCPHostPort", port, Guru, "Port to which events go; 0 closes the channel");
  Shown(add.Integer("GevMCDA", add.Value("GevMCDAValue", Bootstrap::kMessageDestination, 4, ReadWrite), Guru,
                    "Address to which events go"),
        Representation::Ipv4Address);
  Unit(add.Integer("GevMCTT", add.Value("GevMCTTValue", Bootstrap::kMessageTimeout, 4, ReadWrite), Guru,
                   "How long to wait for an acknowledge; 0: none is wanted"),
       "ms");
  add.Integer("GevMCRC", add.Value("GevMCRCValue", Bootstrap::kMessageRetries, 4, ReadWrite), Guru,
              "How often an event that is not acknowledged is sent again");
  add.Integer("GevMCSP",
              add.Value("GevMCSPValue", Bootstrap::kMessageSourcePort, 4, ReadOnly, BitRange{16, 31}), Guru,
              "Port from which events come");
}

void AddEventControl(FeatureBuilder& add, FeatureTree& tree) {
  add.Category("EventControl", "Root", Expert);
  AddNotification(add, tree);
  // Without a stream there are no block ids, and so no long form.
  const NodePtr extended = tree.Find("GevGVSPExtendedIDModeValue");
  const NodePtr offset =
      extended ? add.Formula("EventLongFormOffset", {extended}, extended->name + " * 8") : nullptr;
  const NodePtr selector = tree.Find("EventSelector");
  for (const OwnEvent& event : kOwnEvents) {
    if (event.stream_only && !extended) continue;
    const NodePtr entry = MakeNode(NodeKind::EnumEntry, event.name, NameSpace::Standard);
    entry->value = std::int64_t{event.number};
    AddRelated(selector, NodeList::Child, entry, nullptr);
    EventData(add, event, extended).Add(offset);
  }
}

}  // namespace Tarn
