#pragma once

/// Reading and writing the present value of any node, along its value chain.
///
/// These are the device's own accesses: they are not limited by access modes, and no listener hears of them.

#include <cstdint>
#include <string>

#include "camera/engine/nodes/evaluation.h"
#include "camera/engine/nodes/node.h"

namespace Tarn {

/// Throw: EngineError kNotSupported when nodes of the kind have no such value, kNoValue when it cannot be
/// computed.
std::int64_t ReadInteger(const Node& node, Evaluation& at);  ///< floats are rounded to nearest
double ReadFloat(const Node& node, Evaluation& at);
bool ReadBoolean(const Node& node, Evaluation& at);  ///< of a command: whether it is done
/// Text form: numbers in decimal, booleans "true" and "false", of an enumeration the current entry's name.
std::string ReadText(const Node& node, Evaluation& at);

/// As above, at this moment.
std::int64_t ReadInteger(const Node& node);
double ReadFloat(const Node& node);
bool ReadBoolean(const Node& node);
std::string ReadText(const Node& node);

/// Throw: EngineError kOutOfRange outside the limits (enumerations: no entry has the number), kIncrement off
/// the increment, kNotSupported as above, kText when a text cannot be read. After a throw nothing has
/// changed.
void WriteInteger(Node& node, std::int64_t value);
void WriteFloat(Node& node, double value);
void WriteBoolean(Node& node, bool value);  ///< of a command: true executes it, false marks it done
void WriteText(Node& node, const std::string& text);

/// Brings the value of an integer back inside its limits after these have moved: to the next smaller value that
/// it can have, else to the smallest. Leaves it where there is none, or limits cannot be computed.
void MoveInside(Node& node);

/// The entry of an enumeration that has this number or this name; null when there is none.
NodePtr EntryOf(const Node& enumeration, std::int64_t number);
NodePtr EntryOf(const Node& enumeration, const std::string& name);

/// To be called before the register of a command is given `number`. When that executes the command, what the
/// register holds now is kept for FinishCommand.
void NoteExecution(Node& command, std::int64_t number, Evaluation& at);

/// Lets a command count as done when its register still holds the number that executes it: the register gets
/// back what it held before, since it may be that of a value, too.
void FinishCommand(Node& command, Evaluation& at);
void FinishCommand(Node& command);

}  // namespace Tarn
