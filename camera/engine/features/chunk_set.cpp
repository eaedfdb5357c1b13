#include "camera/engine/features/chunk_set.h"

#include <algorithm>
#include <string>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/registers/register_table.h"

namespace Tarn {
namespace {

constexpr std::uint32_t kOwnChunks = NumberOf(ChunkId::PixelFormat) + 1;
constexpr auto kFirstOfProgram = static_cast<std::uint32_t>(ChunkId::FirstOfProgram);
constexpr std::string_view kChunkPrefix = "Chunk";

bool IsOwnChunk(const RegisterPart& reg) {
  return reg.port == PortKind::Chunk && reg.port_id < kFirstOfProgram;
}
bool IsProgramsChunk(const RegisterPart& reg) {
  return reg.port == PortKind::Chunk && reg.port_id >= kFirstOfProgram;
}
bool IsProgramsRegister(const RegisterPart& reg) {
  return reg.port == PortKind::Device && reg.address >= static_cast<std::int64_t>(kBootstrapEnd) &&
         reg.address < static_cast<std::int64_t>(kManufacturerRegisters);
}

/// In the chunk a register has other bytes than in the device, so nothing else may stand on it.
void CheckServesOnly(const FeatureTree& tree, const NodePtr& feature, const NodePtr& reg) {
  if (!reg->reg->address_nodes.empty()) {
    throw EngineError(Failure::kInvalidArgument,
                      feature->name + " cannot be a chunk: the address of its register moves");
  }
  std::vector<const Node*> chain;
  for (NodePtr node = feature; node; node = NodeOf(node->value)) chain.push_back(node.get());
  for (const NodePtr& node : tree.Nodes()) {
    if (node->kind == NodeKind::Category || std::ranges::find(chain, node.get()) != chain.end()) continue;
    const std::vector<NodePtr> used = DirectDependencies(*node);
    if (std::ranges::find(used, reg) == used.end()) continue;
    throw EngineError(Failure::kInvalidArgument, feature->name + " cannot be a chunk: its register " +
                                                     reg->name + " is also used by " + node->name);
  }
}

void RemoveProgramsEntries(const NodePtr& selector) {
  for (const NodePtr& entry : Related(*selector, NodeList::Child)) {
    if (ReadInteger(*entry) >= kOwnChunks) RemoveRelated(selector, NodeList::Child, entry);
  }
}

void ReturnStrays(FeatureTree& tree, const std::vector<NodePtr>& programs) {
  for (const NodePtr& node : tree.Nodes()) {
    if (!node->is_register() || !IsProgramsChunk(*node->reg)) continue;
    if (std::ranges::find(programs, node) == programs.end()) tree.MoveToDevice(*node);
  }
}

/// What the device's own chunks say of an image; the block's id is not known yet.
std::int64_t OwnValue(ChunkId id, const ImageLeader& image) {
  switch (id) {
    case ChunkId::Timestamp:
      return static_cast<std::int64_t>(image.timestamp);
    case ChunkId::OffsetX:
      return image.offset_x;
    case ChunkId::OffsetY:
      return image.offset_y;
    case ChunkId::Width:
      return image.size_x;
    case ChunkId::Height:
      return image.size_y;
    case ChunkId::PixelFormat:
      return image.pixel_format;
    default:
      return 0;
  }
}

}  // namespace

void ChunkSet::Collect(FeatureTree& tree) {
  chunks_.clear();
  const NodePtr category = tree.Find("ChunkDataControl");
  const NodePtr selector = tree.Find("ChunkSelector");
  if (!category || !selector || selector->kind != NodeKind::Enumeration) return;  // taken out by the program
  RemoveProgramsEntries(selector);
  std::vector<NodePtr> programs;
  for (const NodePtr& feature : category->children) {
    const NodePtr reg = RegisterBehind(feature);
    if (!reg || reg->tree != &tree) continue;
    if (IsOwnChunk(*reg->reg)) {
      chunks_.push_back({reg->reg->port_id, NumberOf(ChunkId{reg->reg->port_id}), reg});
    } else if (feature->name.starts_with(kChunkPrefix) &&
               (IsProgramsRegister(*reg->reg) || IsProgramsChunk(*reg->reg))) {
      const auto index = static_cast<std::uint32_t>(programs.size());
      AddProgramsChunk(tree, selector, feature, {kFirstOfProgram + index, kOwnChunks + index, reg});
      programs.push_back(reg);
    }
  }
  ReturnStrays(tree, programs);
}

void ChunkSet::AddProgramsChunk(FeatureTree& tree, const NodePtr& selector, const NodePtr& feature,
                                const Chunk& chunk) {
  CheckServesOnly(tree, feature, chunk.reg);
  if (chunk.number >= kMaxChunks) {
    throw EngineError(
        Failure::kInvalidArgument,
        "there are more than " + std::to_string(kMaxChunks - kOwnChunks) + " chunks beside the device's own");
  }
  const NodePtr entry =
      MakeNode(NodeKind::EnumEntry, feature->name.substr(kChunkPrefix.size()), NameSpace::Custom);
  entry->value = std::int64_t{chunk.number};
  AddRelated(selector, NodeList::Child, entry, nullptr);
  tree.MoveToPort(*chunk.reg, PortKind::Chunk, chunk.id);
  chunks_.push_back(chunk);
}

bool ChunkSet::Active(const FeatureTree& tree) const {
  return tree.Memory().Load32(ManufacturerRegister::kChunkModeActive) != 0;
}

bool ChunkSet::Enabled(const FeatureTree& tree, const Chunk& chunk) const {
  return tree.Memory().Load32(ManufacturerRegister::kChunkEnable + 4 * chunk.number) != 0;
}

std::size_t ChunkSet::TailBytes(const FeatureTree& tree, std::size_t image_bytes) const {
  std::size_t size = ChunkTail::Size(image_bytes) - image_bytes;
  for (const Chunk& chunk : chunks_) {
    if (Enabled(tree, chunk)) size += ChunkTail::Size(chunk.reg->reg->length);
  }
  return size;
}

ChunkTail ChunkSet::Compose(const FeatureTree& tree, const ImageLeader& image, std::size_t image_bytes) {
  ChunkTail tail;
  tail.EndImage(static_cast<std::uint32_t>(ChunkId::Image), image_bytes);
  for (const Chunk& chunk : chunks_) {
    if (!Enabled(tree, chunk)) continue;
    const ChunkId id{chunk.id};
    if (chunk.id < kFirstOfProgram) WriteInteger(*chunk.reg, OwnValue(id, image));
    if (id == ChunkId::FrameId) {
      tail.AddBlockId(chunk.id);
    } else {
      tail.Add(chunk.id, chunk.reg->reg->bytes);
    }
  }
  return tail;
}

}  // namespace Tarn
