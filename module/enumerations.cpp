#include "binding/enumeration.h"
#include "module/type_def.h"

// The codes of the server library as Python sees them. The values are the library's (see tr_codes.h), gaps
// included.

namespace _tarn::gevserver {

using Tarn::Binding::EnumerationBuilder;

template <>
void TypeDef<NodeList>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NodeList", "Node access.")
      .Member("Child", 0, "Node accesses the child nodes.",
              "Category: Nodes in category. Enumeration: EnumEntry nodes. SwissKnifes: Variables.")
      .Member("Selected", 1, "Node accesses the selected nodes.")
      .Member("Invalidator", 2, "Node accesses the invalidator nodes.")
      .Member("Addresses", 3, "Node accesses the register address nodes (not constants).");
}

template <>
void TypeDef<DriverType>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.DriverType", "Driver type.")
      .Member("Auto", -1, "Auto select driver type.")
      .Member("Socket", 0, "Socket driver.")
      .Member("Filter", 1, "Filter driver.");
}

template <>
void TypeDef<ServerInitType>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.ServerInitType", "The possible types a server can be initiated.")
      .Member("FixedSize", 1, "Server with fixed size.")
      .Member("DynamicSize", 2, "Server with dynamic size.");
}

template <>
void TypeDef<ServerEvent>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.ServerEvent", "Server status event.")
      .Member("Connected", 0, "Connection established.")
      .Member("Disconnected", 1, "Server is disconnected.")
      .Member("AcquisitionStart", 2, "Start of acquisition requested.")
      .Member("AcquisitionStop", 3, "Stop of acquisition requested.")
      .Member("ImageSnapped", 4, "Image snap requested.");
}

template <>
void TypeDef<NodeEvent>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NodeEvent", "Node event.")
      .Member("Read", 0, "Read from node.")
      .Member("Write", 1, "Write to node.");
}

template <>
void TypeDef<NodeType>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NodeType", "Available node types.")
      .Member("Invalid", -1, "Node is invalid.")
      .Member("Unknown", 0, "Node is of unknown type.")
      .Member("Category", 1, "Node is a category node.")
      .Member("IntReg", 2, "Node is an integer register node.")
      .Member("StringReg", 3, "Node is a string register node.")
      .Member("Integer", 4, "Node is an integer node (no reg).")
      .Member("Boolean", 5, "Node is a boolean node (no reg).")
      .Member("Command", 6, "Node is a command node (no reg).")
      .Member("Enumeration", 7, "Node is an enumeration node (no reg).")
      .Member("EnumEntry", 8, "Node is an enumeration entry node (no reg).")
      .Member("IntSwissKnife", 9, "Node is an integer swiss knife node (no reg).");
}

template <>
void TypeDef<Info>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.Info", "General version and acquisition information.")
      .Member("XMLVersionMajor", 0, "Major XML version info.")
      .Member("XMLVersionMinor", 1, "Minor XML version info.")
      .Member("XMLVersionSubMinor", 2, "Sub minor XML version info.")
      .Member("ServerUserVersion", 3, "User version of the server.")
      .Member("AcquisitionActive", 4, "Acquisition active info.");
}

template <>
void TypeDef<NodeInfo>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NodeInfo", "Node information.")
      .Member("Name", 0, "Gets the full name of the node.")
      .Member("DisplayName", 1, "Gets the display name of the node.")
      .Member("AccessMode", 2, "Gets the access mode of the node.")
      .Member("Max", 3, "Gets the maximum value.")
      .Member("Min", 4, "Gets the minimum value.")
      .Member("Increment", 5, "Gets the increment.")
      .Member("NumEnumEntries", 6, "Number of enumeration entries for NInfoEnum.")
      .Member("Streamable", 7, "Information on the streamability of the node.")
      .Member("CachingMode", 8, "Gets the caching mode.")
      .Member("ToolTip", 9, "Gets the tool tip (short description).")
      .Member("Description", 10, "Gets the long descriptive text.")
      .Member("Visibility", 11, "Gets the visibility level.")
      .Member("PollingTime", 12, "Gets the polling time in ms.")
      .Member("EventID", 13, "Gets the event ID if available.")
      .Member("NameSpace", 14, "Gets the node namespace.")
      .Member("RegisterLength", 15, "Gets the register nodes length in bytes.")
      .Member("RegisterAddress", 16, "Gets the current address of the register (can change).")
      .Member("Value", 18, "Accesses the value configuration.")
      .Member("OnValue", 19,
              "Boolean specific: accesses the integer value for true. Command specific: accesses the integer "
              "value for execute.")
      .Member("OffValue", 20, "Boolean specific: accesses the integer value for false.")
      .Member("Formula", 21, "Formula for swiss knife nodes.")
      .Member("ImposedAccessMode", 22,
              "Accesses the TAccessMode of the node overriding the nodes it depends on.")
      .Member("IsImplemented", 23, "Access the IInteger node defining whether the node is implemented.")
      .Member("IsAvailable", 24, "Accesses the IInteger node defining whether the node is available.")
      .Member("IsLocked", 25, "Accesses the IInteger node defining whether the node is read only.")
      .Member("Alias", 26, "Accesses the alias node of this node.")
      .Member("Sign", 27, "Accesses the signed or unsigned state of integer registers.")
      .Member("Last", 30, "Node last.");
}

template <>
void TypeDef<NumberSign>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NumberSign", "The signedness of the number.")
      .Member("Unsigned", 0, "Unsigned.")
      .Member("Signed", 1, "Signed.");
}

template <>
void TypeDef<PayloadType>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.PayloadType", "The type of the payload.")
      .Member("Image", 1, "Image payload.")
      .Member("File", 2, "File payload.")
      .Member("ChunkImage", 0x4001, "Chunk image payload.");
}

template <>
void TypeDef<State>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.State", "The possible states the GevServer can be in.")
      .Member("Configuration", 0, "Configuration state.")
      .Member("Disconnected", 1, "Disconnected from remote client.")
      .Member("Connected", 2, "Connected to remote client.")
      .Member("AcquisitionEnabled", 3, "Acquisition enabled state.");
}

template <>
void TypeDef<NameSpace>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NameSpace", "The possible name spaces a node can be in.")
      .Member("Standard", 0, "Standard name space.")
      .Member("Custom", 1, "Custom name space.")
      .Member("Private", 2, "Private name space.");
}

}  // namespace _tarn::gevserver
