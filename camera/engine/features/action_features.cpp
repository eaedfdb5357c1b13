// Actions: commands to many devices at once, and what programs and clients see of them.

#include "camera/engine/features/feature_parts.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/registers/bootstrap_rules.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

using enum Visibility;
using enum AccessMode;

void AddGroups(FeatureBuilder& add) {
  const NodePtr selector =
      Limited(add.Integer("ActionSelector", std::int64_t{1}, Guru, "Action signal that key and mask are of"),
              std::int64_t{1}, std::int64_t{kActionSignals});
  const NodePtr offset = add.Formula("ActionGroupOffset", {selector}, "(ActionSelector - 1) * 16");
  const auto part = [&](const std::string& name, std::uint32_t address, const char* tool_tip) {
    const NodePtr value = add.Value(name + "Value", address, 4, ReadWrite);
    value->reg->address_nodes.push_back(offset);
    const NodePtr feature = Shown(add.Integer(name, value, Guru, tool_tip), Representation::HexNumber);
    AddRelated(selector, NodeList::Selected, feature, nullptr);
  };
  static_assert(Bootstrap::kActionGroupStep == 16);
  part("ActionGroupKey", Bootstrap::kActionGroupKeys, "Group to which a command must be addressed");
  part("ActionGroupMask", Bootstrap::kActionGroupMasks, "A command must have one of these bits in its mask");
}

}  // namespace

void AddActions(FeatureBuilder& add) {
  add.Category("ActionControl", "Root", Guru);
  const NodePtr mode = add.Value("ActionUnconditionalModeValue", Bootstrap::kControlConfiguration, 4,
                                 ReadWrite, BitRange{28, 28});
  add.Enumeration("ActionUnconditionalMode", mode, {{"Off", 0}, {"On", 1}}, Guru,
                  "Whether actions happen also while nobody controls the device");
  const NodePtr key = add.Value("ActionDeviceKeyValue", Bootstrap::kActionDeviceKey, 4, WriteOnly);
  Shown(add.Integer("ActionDeviceKey", key, Guru, "Key that a command must have"), Representation::HexNumber);
  add.IntRegister("ActionQueueSize", Bootstrap::kScheduledActionQueueSize, 4, Guru,
                  "Scheduled actions that can wait; their times are those of TimestampLatchValue");
  AddGroups(add);
  // Programs listen to writes of these.
  for (std::uint32_t signal = 0; signal < kActionSignals; ++signal) {
    add.Custom().IntRegister("ActionCount" + std::to_string(signal + 1),
                             ManufacturerRegister::kActionCounts + 4 * signal, 4, Guru,
                             "How many times this action signal has fired");
  }
}

}  // namespace Tarn
