#pragma once

/// Events that a program defines by the nodes of its own.
///
/// An event is defined in one of two ways:
///   [1] An Integer node with a constant value from 0x9000 to 0xFFFF, named Event<Name> and put into the
///   category
///       EventControl, defines the event <Name> of that number. All other nodes of the program whose names
///       begin with Event<Name> belong to it: they get its number as their event id.
///   [2] A node that carries an event id of its own, which the C line can set, defines an event named like
///       itself; other nodes with the same id belong to it.
///
/// What supplies the value of such a node gets the id too, unless it has one.
///
/// The event is told whenever the program stores into a register that belongs to it, or that supplies the
/// value of a node that does, and carries the register's bytes. What a client stores is told when the program
/// stores it once more.

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {

/// Numbers of the events that a store into a register means.
using EventSources = std::unordered_map<const Node*, std::vector<std::uint16_t>>;

/// Gives nodes their event ids, and EventSelector an entry for each of the program's events; entries of an
/// earlier call go.
/// Throws: EngineError kInvalidArgument when a number is outside the range or in use by another event,
/// kExists when two events have one name.
void DefineUserEvents(FeatureTree& tree);

/// To be called behind DefineUserEvents; holds while the tree stays as it is.
/// Throws: EngineError kInvalidArgument when a register is longer than an event message can carry.
EventSources FindEventSources(const FeatureTree& tree);

}  // namespace Tarn
