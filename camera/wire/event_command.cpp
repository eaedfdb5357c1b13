#include "camera/wire/event_command.h"

namespace Tarn {

bool EventCommand::CarriesData() const noexcept {
  return !data.empty() && data.size() <= kMaxControlPayload - EventItem::Size(extended);
}

void EventCommand::Encode(ByteWriter& out) const noexcept {
  const std::size_t size = EventItem::Size(extended) + (CarriesData() ? data.size() : 0);
  CommandHeader header;
  header.flags = static_cast<std::uint8_t>((wants_answer ? CommandFlag::kAckRequired : 0) |
                                           (extended ? CommandFlag::kExtendedIds : 0));
  header.command = Code();
  header.length = static_cast<std::uint16_t>(size);
  header.request_id = request_id;
  header.Encode(out);

  out.Put(static_cast<std::uint16_t>(extended ? size : 0));
  out.Put(item.number);
  out.Put(item.channel);
  if (extended) {
    out.Put(std::uint16_t{0});
    out.Put(item.block_id);
  } else {
    out.Put(static_cast<std::uint16_t>(item.block_id));
  }
  out.Put(item.timestamp);
  if (CarriesData()) out.PutBytes(data);
}

}  // namespace Tarn
