#include "camera/engine/features/feature_parts.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

struct Counter {
  const char* name;
  std::uint32_t address;
  const char* unit;
  const char* tool_tip;
};

constexpr Counter kEventCounters[] = {
    {"DeviceEventsSent", ManufacturerRegister::kEventsSent, "",
     "Events sent since the start, repeats not counted"},
    {"DeviceEventsRepeated", ManufacturerRegister::kEventsRepeated, "", "Event messages sent again"},
    {"DeviceEventsLost", ManufacturerRegister::kEventsLost, "", "Events that the client did not acknowledge"},
    {"DeviceEventsDropped", ManufacturerRegister::kEventsDropped, "",
     "Events not sent because too many waited for their turn"},
};

constexpr Counter kStreamCounters[] = {
    {"DeviceStreamFrames", ManufacturerRegister::kStreamFrames, "", "Frames sent whole since the start"},
    {"DeviceStreamDroppedFrames", ManufacturerRegister::kStreamDroppedFrames, "",
     "Frames taken from the program and not sent whole"},
    {"DeviceStreamPackets", ManufacturerRegister::kStreamPackets, "",
     "Stream packets sent, resends included"},
    {"DeviceStreamBytes", ManufacturerRegister::kStreamBytes, "B",
     "Bytes in these packets, without their IP and UDP headers"},
    {"DeviceStreamResentPackets", ManufacturerRegister::kStreamResentPackets, "",
     "Stream packets sent again on the client's request"},
    {"DeviceStreamFailedPackets", ManufacturerRegister::kStreamFailedPackets, "",
     "Stream packets that could not be sent: no link, no address, no route, a firewall, or no room for too "
     "long"},
    {"DeviceStreamUnreachable", ManufacturerRegister::kStreamUnreachable, "",
     "Times that the network reported that nobody takes the stream"},
    {"DeviceStreamQueueFull", ManufacturerRegister::kStreamQueueFull, "",
     "Times that the link's queue had no room for a packet, and the stream waited"},
    {"DeviceStreamRefusedImages", ManufacturerRegister::kStreamRefusedImages, "",
     "Images not taken from the program because earlier ones were still to be sent"},
    {"DeviceStreamDroppedRequests", ManufacturerRegister::kStreamDroppedRequests, "",
     "Requests for packets that were dropped because too many waited"},
};

void AddCounter(FeatureBuilder& add, const Counter& counter) {
  Unit(add.IntRegister(counter.name, counter.address, 8, Visibility::Guru, counter.tool_tip), counter.unit);
}

}  // namespace

void AddCounters(const FeatureBuilder& device, bool has_stream) {
  FeatureBuilder add = device.Custom();
  add.Category("DeviceCounters", "TransportLayerControl", Visibility::Guru);
  AddCounter(add, {"DeviceHeartbeatTimeouts", ManufacturerRegister::kHeartbeatTimeouts, "",
                   "Clients that lost control because they fell silent"});
  AddCounter(add, {"DeviceRefusedCommands", ManufacturerRegister::kRefusedCommands, "",
                   "Commands refused because their client was not in control"});
  AddCounter(add, {"DeviceDroppedCommands", ManufacturerRegister::kDroppedCommands, "",
                   "Commands not answered because too many waited, or their client asked for too much"});
  AddCounter(add,
             {"DeviceDroppedNotifications", ManufacturerRegister::kDroppedNotifications, "",
              "Actions that were counted, but that the program was not told of because too many waited"});
  AddCounter(add, {"DeviceWrongSwitchoverKeys", ManufacturerRegister::kWrongSwitchoverKeys, "",
                   "Attempts to take control over with a wrong key"});
  for (const Counter& counter : kEventCounters) AddCounter(add, counter);
  if (!has_stream) return;
  for (const Counter& counter : kStreamCounters) AddCounter(add, counter);
}

}  // namespace Tarn
