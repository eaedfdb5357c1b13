#include "engine/control/answered_writes.h"

#include <algorithm>

namespace Tarn {

ByteView AnsweredWrites::Find(Endpoint client, ByteView command) const {
  for (const Entry& entry : entries_) {
    if (entry.client == client && std::ranges::equal(entry.command, command)) return entry.answer;
  }
  return {};
}

void AnsweredWrites::Remember(Endpoint client, ByteView command, ByteView answer) {
  auto entry = std::ranges::find(entries_, client, &Entry::client);
  if (entry == entries_.end())
    entry = entries_.begin() + static_cast<std::ptrdiff_t>(next_++ % entries_.size());
  entry->client = client;
  entry->command.assign(command.begin(), command.end());
  entry->answer.assign(answer.begin(), answer.end());
}

void AnsweredWrites::Clear() { entries_ = {}; }

}  // namespace Tarn
