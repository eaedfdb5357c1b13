// Features of the control channel: who is in control, for how long, and how commands are answered.

#include "camera/engine/features/feature_parts.h"
#include "camera/engine/registers/bootstrap_rules.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

using enum Visibility;
using enum AccessMode;

void AddHeartbeat(FeatureBuilder& add, FeatureTree& tree) {
  const NodePtr timeout = add.Value("GevHeartbeatTimeoutValue", Bootstrap::kHeartbeatTimeout, 4, ReadWrite);
  Unit(
      Limited(add.Integer("GevHeartbeatTimeout", timeout, Guru, "Silence after which a client loses control"),
              std::int64_t{kMinHeartbeatTimeout}, std::int64_t{0xFFFF'FFFF}),
      "ms");
  FeatureBuilder::Deprecate(add.Boolean("GevGVCPHeartbeatDisable", tree.Find("DeviceLinkHeartbeatModeValue"),
                                        Invisible, "Lets a silent client keep control"));
}

void AddAnswers(FeatureBuilder& add) {
  const NodePtr delay =
      add.Value("GevDiscoveryAckDelayValue", Bootstrap::kDiscoveryDelay, 4, ReadWrite, BitRange{16, 31});
  Unit(Limited(add.Integer("GevDiscoveryAckDelay", delay, Expert,
                           "Longest time for which the answer to a broadcast discovery is held back"),
               std::int64_t{0}, std::int64_t{kMaxDiscoveryDelay}),
       "ms");
  const NodePtr pending =
      add.Value("GevGVCPPendingAckValue", Bootstrap::kControlConfiguration, 4, ReadWrite, BitRange{30, 30});
  add.Boolean("GevGVCPPendingAck", pending, Guru, "Whether the client is told when a command takes longer");
  const NodePtr interval = add.IntRegister("GevGVCPPendingTimeout", Bootstrap::kPendingTimeout, 4, Invisible,
                                           "When the client is told that a command takes longer");
  FeatureBuilder::Deprecate(Unit(interval, "ms"));
  Unit(add.Custom().IntRegister(
           "DeviceListenerTimeout", ManufacturerRegister::kListenerTimeout, 4, Guru,
           "How long the program may take for a client's command before the client's silence meanwhile "
           "counts against its heartbeat"),
       "ms");
}

void AddPrivilege(FeatureBuilder& add) {
  const NodePtr privilege = add.Value("GevCCPValue", Bootstrap::kControlPrivilege, 4, ReadWrite);
  // The numbers are those that the register shows: exclusive access has the bit of control, too.
  add.Enumeration("GevCCP", privilege,
                  {{"OpenAccess", 0},
                   {"ControlAccess", 2},
                   {"ExclusiveAccess", 3},
                   {"ControlAccessSwitchoverActive", 6},
                   {"ExclusiveAccessSwitchoverActive", 7}},
                  Guru, "Who may control the device");
  const NodePtr key =
      add.Value("GevPrimaryApplicationSwitchoverKeyValue", Bootstrap::kSwitchoverKey, 4, WriteOnly);
  Limited(add.Integer("GevPrimaryApplicationSwitchoverKey", key, Guru,
                      "What another client must know to take control over, where that is allowed"),
          std::int64_t{0}, std::int64_t{0xFFFF});
  add.Integer(
      "GevPrimaryApplicationSocket",
      add.Value("GevPrimaryApplicationSocketValue", Bootstrap::kPrimaryPort, 4, ReadOnly, BitRange{16, 31}),
      Guru, "Port of the client in control");
}

}  // namespace

void AddControlChannel(FeatureBuilder& add, FeatureTree& tree) {
  AddHeartbeat(add, tree);
  AddAnswers(add);
  AddPrivilege(add);
}

}  // namespace Tarn
