#include "camera/engine/stream/chunk_tail.h"

namespace Tarn {

void ChunkTail::EndImage(std::uint32_t id, std::size_t image_bytes) {
  const std::size_t padded = Padded(image_bytes);
  bytes_.resize(bytes_.size() + padded - image_bytes);
  PutTag(id, padded);
}

void ChunkTail::Add(std::uint32_t id, ByteView data) {
  const std::size_t padded = Padded(data.size());
  bytes_.insert(bytes_.end(), data.begin(), data.end());
  bytes_.resize(bytes_.size() + padded - data.size());
  PutTag(id, padded);
}

void ChunkTail::AddBlockId(std::uint32_t id) {
  block_id_at_ = bytes_.size();
  bytes_.resize(bytes_.size() + sizeof(std::uint64_t));
  PutTag(id, sizeof(std::uint64_t));
}

void ChunkTail::StampBlockId(std::uint64_t block_id) noexcept {
  if (block_id_at_) StoreBe(bytes_.data() + *block_id_at_, block_id);
}

void ChunkTail::PutTag(std::uint32_t id, std::size_t length) {
  const std::size_t at = bytes_.size();
  bytes_.resize(at + ChunkTag::kSize);
  ByteWriter out(MutableByteView(bytes_).subspan(at));
  ChunkTag{id, static_cast<std::uint32_t>(length)}.Encode(out);
  // FNV-1a, 32 bit. Source: Fowler, Noll, Vo.
  for (const std::uint8_t byte : out.Written()) layout_ = (layout_ ^ byte) * 0x0100'0193;
}

}  // namespace Tarn
