#include <iterator>

#include "camera/engine/features/chunk_set.h"
#include "camera/engine/features/feature_parts.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

using enum Visibility;
using enum AccessMode;

struct IntegerChunk {
  const char* name;
  ChunkId id;
  std::uint32_t length;
  const char* unit;
  const char* tool_tip;
};

constexpr IntegerChunk kIntegerChunks[] = {
    {"ChunkTimestamp", ChunkId::Timestamp, 8, "ns", "When the image was taken"},
    {"ChunkFrameID", ChunkId::FrameId, 8, "", "Number of the image's block"},
    {"ChunkOffsetX", ChunkId::OffsetX, 4, "pixel", "Place of the image on the sensor"},
    {"ChunkOffsetY", ChunkId::OffsetY, 4, "pixel", "Place of the image on the sensor"},
    {"ChunkWidth", ChunkId::Width, 4, "pixel", "Width of the image"},
    {"ChunkHeight", ChunkId::Height, 4, "pixel", "Height of the image"}};

NodePtr OnChunkPort(NodePtr node, ChunkId id) {
  return OnPort(std::move(node), PortKind::Chunk, static_cast<std::uint32_t>(id));
}

}  // namespace

void AddChunkData(FeatureBuilder& add, FeatureTree& tree, const SensorFormat& format, const NodePtr& locked) {
  add.Category("ChunkDataControl", "Root", Expert);
  const NodePtr active =
      add.Boolean("ChunkModeActive",
                  add.Value("ChunkModeActiveValue", ManufacturerRegister::kChunkModeActive, 4, ReadWrite),
                  Expert, "Whether chunks go along with each image");
  const NodePtr selector = add.Enumeration("ChunkSelector", std::int64_t{0},
                                           {{"Image", NumberOf(ChunkId::Image)},
                                            {"Timestamp", NumberOf(ChunkId::Timestamp)},
                                            {"FrameID", NumberOf(ChunkId::FrameId)},
                                            {"OffsetX", NumberOf(ChunkId::OffsetX)},
                                            {"OffsetY", NumberOf(ChunkId::OffsetY)},
                                            {"Width", NumberOf(ChunkId::Width)},
                                            {"Height", NumberOf(ChunkId::Height)},
                                            {"PixelFormat", NumberOf(ChunkId::PixelFormat)}},
                                           Expert, "Chunk that ChunkEnable switches");
  const NodePtr enable_value =
      add.Value("ChunkEnableValue", ManufacturerRegister::kChunkEnable, 4, ReadWrite);
  enable_value->reg->address_nodes.push_back(
      add.Formula("ChunkEnableOffset", {selector}, "ChunkSelector * 4"));
  const NodePtr enable = add.Boolean("ChunkEnable", enable_value, Expert,
                                     "Whether the selected chunk goes along; the image always does");
  AddRelated(selector, NodeList::Selected, enable, nullptr);
  // Also writable for the image, which goes along whatever it says: clients that choose chunks switch each
  // off first, and give up at the first that they cannot.
  for (const NodePtr& node : {active, enable}) {
    node->is_locked = locked;
    node->streamable = true;
  }
  for (std::uint32_t i = 0; i < kMaxChunks; ++i) {
    tree.Memory().Store32(ManufacturerRegister::kChunkEnable + 4 * i, 1);
  }
  for (const IntegerChunk& chunk : kIntegerChunks) {
    Unit(OnChunkPort(add.IntRegister(chunk.name, 0, chunk.length, Expert, chunk.tool_tip), chunk.id),
         chunk.unit);
  }
  const NodePtr pixel_format =
      OnChunkPort(add.Value("ChunkPixelFormatValue", 0, 4, ReadOnly), ChunkId::PixelFormat);
  WriteInteger(*pixel_format, format.pixel_format);
  add.Enumeration("ChunkPixelFormat", pixel_format, {{format.pixel_format_name, format.pixel_format}}, Expert,
                  "Format of the image's pixels");
}

}  // namespace Tarn
