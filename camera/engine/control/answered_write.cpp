#include "camera/engine/control/answered_write.h"

#include <algorithm>

namespace Tarn {

ByteView AnsweredWrite::Find(Endpoint client, ByteView command) const {
  const bool same = client_ == client && std::ranges::equal(command_, command);
  return same ? ByteView(answer_) : ByteView();
}

void AnsweredWrite::Remember(Endpoint client, ByteView command, ByteView answer) {
  client_ = client;
  command_.assign(command.begin(), command.end());
  answer_.assign(answer.begin(), answer.end());
}

void AnsweredWrite::Clear() { *this = {}; }

}  // namespace Tarn
