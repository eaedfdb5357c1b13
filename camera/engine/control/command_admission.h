#pragma once

/// Who may send which command in which state, and when it is executed.

#include <cstdint>

#include "camera/base/byte_stream.h"
#include "camera/engine/control/control_request.h"
#include "camera/engine/control/control_session.h"
#include "camera/wire/gvcp.h"

namespace Tarn {

/// What is to be done with a command.
enum class Turn {
  AtOnce,   ///< executed at once: it needs no listener, and may pass what waits
  InOrder,  ///< executed behind what its source has waiting, where listeners can be called if it has any
  Refused,  ///< executed at once, since all that comes of it is a refusal
  Dropped,  ///< not executed and not answered
};

///   | command                        | primary application | others, free | others, held | others, exclusive |
///   |--------------------------------+---------------------+--------------+--------------+-------------------|
///   | discovery, address, action     | at once             | at once      | at once      | at once           |
///   | resend                         | at once             | dropped      | at once [1]  | at once [1]       |
///   | read of the privilege [2]      | at once             | in order     | in order     | refused           |
///   | other reads                    | in order            | in order     | in order     | refused           |
///   | write of the privilege         | in order            | in order     | in order [3] | in order [3]      |
///   | other writes                   | in order            | refused      | refused      | refused           |
///   | what is malformed or unknown   | refused             | refused      | refused      | refused           |
///
/// [1] Clients ask from their stream socket, so the port says nothing about who asks: the address decides.
/// [2] Clients keep their control alive with it, and must not lose it to a slow listener.
/// [3] Refused where the switchover key does not allow it.
///
/// Broadcast datagrams other than discoveries, address assignments and actions are dropped, and reads that want
/// no answer.
///
/// \param payload  behind the header
Turn TurnOf(const ControlRequest& request, const CommandHeader& header, ByteReader payload,
            const ControlSession& session);

/// Whether the command shows that its client lives: the primary application's commands do, but not those that
/// other programs of its host might have sent.
bool IsSignOfLife(Command command);

}  // namespace Tarn
