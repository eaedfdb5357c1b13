#include <sstream>
#include <string>

#include "camera/engine/features/feature_parts.h"
#include "camera/engine/features/user_sets.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

using enum Visibility;
using enum AccessMode;

/// Beside those that depend on the format.
void MarkStreamable(const FeatureTree& tree) {
  for (const DeviceRegister& reg : DeviceRegisters()) {
    std::istringstream names(reg.streamable);
    for (std::string name; names >> name;) {
      if (const NodePtr node = tree.Find(name)) node->streamable = true;
    }
  }
}

}  // namespace

void AddUserSets(FeatureBuilder& add, FeatureTree& tree, const NodePtr& locked) {
  MarkStreamable(tree);
  add.Category("UserSetControl", "Root", Beginner);
  const auto number = [](UserSet set) { return static_cast<std::int64_t>(set); };
  const NodePtr selected =
      add.Value("UserSetSelectorValue", ManufacturerRegister::kUserSetSelector, 4, ReadWrite);
  const NodePtr selector = add.Enumeration(
      "UserSetSelector", selected,
      {{"Default", number(UserSet::Default)}, {"UserSet1", number(UserSet::UserSet1)}}, Beginner,
      "Set that is loaded or saved. Sets live as long as the camera's program: they outlast clients and "
      "restarts of the server, but not the end of the program");
  const NodePtr load = add.Command(
      "UserSetLoad", add.Value("UserSetLoadValue", ManufacturerRegister::kUserSetLoad, 4, WriteOnly), 1,
      Beginner, "Gives all streamable features the values of the set; what is locked stays");
  const NodePtr save = add.Command(
      "UserSetSave", add.Value("UserSetSaveValue", ManufacturerRegister::kUserSetSave, 4, WriteOnly), 1,
      Beginner, "Keeps the values of all streamable features in the set, in memory only");
  load->is_locked = locked;
  // What the camera began with cannot be replaced.
  save->is_locked = add.Formula("UserSetSaveLocked", {selected}, "UserSetSelectorValue = 0");
  for (const NodePtr& command : {load, save}) AddRelated(selector, NodeList::Selected, command, nullptr);
}

}  // namespace Tarn
