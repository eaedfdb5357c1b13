#include "camera/engine/features/feature_parts.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {

using enum Visibility;
using enum AccessMode;

void AddAcquisition(FeatureBuilder& add, const NodePtr& locked) {
  add.Category("AcquisitionControl", "Root", Beginner);
  const NodePtr mode =
      add.Value("AcquisitionModeValue", ManufacturerRegister::kAcquisitionMode, 4, ReadWrite);
  add.Enumeration("AcquisitionMode", mode, {{"Continuous", 0}, {"SingleFrame", 1}, {"MultiFrame", 2}},
                  Beginner, "How many images one acquisition takes")
      ->is_locked = locked;
  const NodePtr count =
      add.Value("AcquisitionFrameCountValue", ManufacturerRegister::kAcquisitionFrameCount, 4, ReadWrite);
  Limited(add.Integer("AcquisitionFrameCount", count, Beginner, "Images that a MultiFrame acquisition takes"),
          std::int64_t{1}, std::int64_t{0x7FFF'FFFF})
      ->is_locked = locked;
  add.Command("AcquisitionStart",
              add.Value("AcquisitionStartValue", ManufacturerRegister::kAcquisitionStart, 4, WriteOnly), 1,
              Beginner, "Starts the acquisition");
  const NodePtr stop =
      add.Value("AcquisitionStopValue", ManufacturerRegister::kAcquisitionStop, 4, WriteOnly);
  add.Command("AcquisitionStop", stop, 1, Beginner, "Stops the acquisition");
  add.Command("AcquisitionAbort", stop, 1, Expert, "Stops the acquisition at once");
}

}  // namespace Tarn
