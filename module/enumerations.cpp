#include "binding/enumeration.h"
#include "gevserver/library/tr_codes.h"
#include "gevserver/server_state.h"
#include "module/type_def.h"

// The codes of the server library as Python sees them. Some of the library's are not published.

namespace _tarn::gevserver {

using Tarn::Binding::EnumerationBuilder;
using Tarn::Binding::Published;

template <>
void TypeDef<NodeList>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NodeList", "Node access.")
      .Member("Child", Published(0, GSN_LIST_CHILD), "Node accesses the child nodes.",
              "Category: Nodes in category. Enumeration: EnumEntry nodes. SwissKnifes: Variables.")
      .Member("Selected", Published(1, GSN_LIST_SELECTED), "Node accesses the selected nodes.")
      .Member("Invalidator", Published(2, GSN_LIST_INVALIDATOR), "Node accesses the invalidator nodes.")
      .Member("Addresses", Published(3, GSN_LIST_ADDRESSES),
              "Node accesses the register address nodes (not constants).");
}

template <>
void TypeDef<DriverType>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.DriverType", "Driver type.")
      .Member("Auto", Published(-1, GS_DRIVER_AUTO), "Auto select driver type.")
      .Member("Socket", Published(0, GS_DRIVER_SOCKET), "Socket driver.")
      .Member("Filter", Published(1, GS_DRIVER_FILTER), "Filter driver.");
}

template <>
void TypeDef<ServerInitType>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.ServerInitType", "The possible types a server can be initiated.")
      .Member("FixedSize", Published(1, GS_INIT_FIXED_SIZE), "Server with fixed size.")
      .Member("DynamicSize", Published(2, GS_INIT_DYNAMIC_SIZE), "Server with dynamic size.");
}

template <>
void TypeDef<ServerEvent>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.ServerEvent", "Server status event.")
      .Member("Connected", Published(0, GS_EVENT_CONNECTED), "Connection established.")
      .Member("Disconnected", Published(1, GS_EVENT_DISCONNECTED), "Server is disconnected.")
      .Member("AcquisitionStart", Published(2, GS_EVENT_ACQUISITION_START), "Start of acquisition requested.")
      .Member("AcquisitionStop", Published(3, GS_EVENT_ACQUISITION_STOP), "Stop of acquisition requested.")
      .Member("ImageSnapped", Published(4, GS_EVENT_IMAGE_SNAPPED), "Image snap requested.");
}

template <>
void TypeDef<NodeEvent>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NodeEvent", "Node event.")
      .Member("Read", Published(0, GSN_EVENT_READ), "Read from node.")
      .Member("Write", Published(1, GSN_EVENT_WRITE), "Write to node.");
}

template <>
void TypeDef<NodeType>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NodeType", "Available node types.")
      .Member("Invalid", Published(-1, GSN_TYPE_INVALID), "Node is invalid.")
      .Member("Unknown", Published(0, GSN_TYPE_UNKNOWN), "Node is of unknown type.")
      .Member("Category", Published(1, GSN_TYPE_CATEGORY), "Node is a category node.")
      .Member("IntReg", Published(2, GSN_TYPE_INT_REG), "Node is an integer register node.")
      .Member("StringReg", Published(3, GSN_TYPE_STRING_REG), "Node is a string register node.")
      .Member("Integer", Published(4, GSN_TYPE_INTEGER), "Node is an integer node (no reg).")
      .Member("Boolean", Published(5, GSN_TYPE_BOOLEAN), "Node is a boolean node (no reg).")
      .Member("Command", Published(6, GSN_TYPE_COMMAND), "Node is a command node (no reg).")
      .Member("Enumeration", Published(7, GSN_TYPE_ENUMERATION), "Node is an enumeration node (no reg).")
      .Member("EnumEntry", Published(8, GSN_TYPE_ENUM_ENTRY), "Node is an enumeration entry node (no reg).")
      .Member("IntSwissKnife", Published(9, GSN_TYPE_INT_SWISS_KNIFE),
              "Node is an integer swiss knife node (no reg).");
}

template <>
void TypeDef<Info>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.Info", "General version and acquisition information.")
      .Member("XMLVersionMajor", Published(0, GS_INFO_XML_VERSION_MAJOR), "Major XML version info.")
      .Member("XMLVersionMinor", Published(1, GS_INFO_XML_VERSION_MINOR), "Minor XML version info.")
      .Member("XMLVersionSubMinor", Published(2, GS_INFO_XML_VERSION_SUB_MINOR),
              "Sub minor XML version info.")
      .Member("ServerUserVersion", Published(3, GS_INFO_SERVER_USER_VERSION), "User version of the server.")
      .Member("AcquisitionActive", Published(4, GS_INFO_ACQUISITION_ACTIVE), "Acquisition active info.");
}

template <>
void TypeDef<NodeInfo>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NodeInfo", "Node information.")
      .Member("Name", Published(0, GSN_INFO_NAME), "Gets the full name of the node.")
      .Member("DisplayName", Published(1, GSN_INFO_DISPLAY_NAME), "Gets the display name of the node.")
      .Member("AccessMode", Published(2, GSN_INFO_ACCESS_MODE), "Gets the access mode of the node.")
      .Member("Max", Published(3, GSN_INFO_MAX), "Gets the maximum value.")
      .Member("Min", Published(4, GSN_INFO_MIN), "Gets the minimum value.")
      .Member("Increment", Published(5, GSN_INFO_INCREMENT), "Gets the increment.")
      .Member("NumEnumEntries", Published(6, GSN_INFO_NUM_ENUM_ENTRIES),
              "Number of enumeration entries for NInfoEnum.")
      .Member("Streamable", Published(7, GSN_INFO_STREAMABLE),
              "Information on the streamability of the node.")
      .Member("CachingMode", Published(8, GSN_INFO_CACHING_MODE), "Gets the caching mode.")
      .Member("ToolTip", Published(9, GSN_INFO_TOOL_TIP), "Gets the tool tip (short description).")
      .Member("Description", Published(10, GSN_INFO_DESCRIPTION), "Gets the long descriptive text.")
      .Member("Visibility", Published(11, GSN_INFO_VISIBILITY), "Gets the visibility level.")
      .Member("PollingTime", Published(12, GSN_INFO_POLLING_TIME), "Gets the polling time in ms.")
      .Member("EventID", Published(13, GSN_INFO_EVENT_ID), "Gets the event ID if available.")
      .Member("NameSpace", Published(14, GSN_INFO_NAME_SPACE), "Gets the node namespace.")
      .Member("RegisterLength", Published(15, GSN_INFO_REGISTER_LENGTH),
              "Gets the register nodes length in bytes.")
      .Member("RegisterAddress", Published(16, GSN_INFO_REGISTER_ADDRESS),
              "Gets the current address of the register (can change).")
      .Member("Value", Published(18, GSN_INFO_VALUE), "Accesses the value configuration.")
      .Member("OnValue", Published(19, GSN_INFO_ON_VALUE),
              "Boolean specific: accesses the integer value for true. Command specific: accesses the integer "
              "value for execute.")
      .Member("OffValue", Published(20, GSN_INFO_OFF_VALUE),
              "Boolean specific: accesses the integer value for false.")
      .Member("Formula", Published(21, GSN_INFO_FORMULA), "Formula for swiss knife nodes.")
      .Member("ImposedAccessMode", Published(22, GSN_INFO_IMPOSED_ACCESS_MODE),
              "Accesses the TAccessMode of the node overriding the nodes it depends on.")
      .Member("IsImplemented", Published(23, GSN_INFO_IS_IMPLEMENTED),
              "Access the IInteger node defining whether the node is implemented.")
      .Member("IsAvailable", Published(24, GSN_INFO_IS_AVAILABLE),
              "Accesses the IInteger node defining whether the node is available.")
      .Member("IsLocked", Published(25, GSN_INFO_IS_LOCKED),
              "Accesses the IInteger node defining whether the node is read only.")
      .Member("Alias", Published(26, GSN_INFO_ALIAS), "Accesses the alias node of this node.")
      .Member("Sign", Published(27, GSN_INFO_SIGN),
              "Accesses the signed or unsigned state of integer registers.")
      .Member("Last", Published(30, GSN_INFO_LAST), "Node last.");
}

template <>
void TypeDef<NumberSign>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NumberSign", "The signedness of the number.")
      .Member("Unsigned", Published(0, GS_UNSIGNED), "Unsigned.")
      .Member("Signed", Published(1, GS_SIGNED), "Signed.");
}

template <>
void TypeDef<PayloadType>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.PayloadType", "The type of the payload.")
      .Member("Image", Published(1, GS_PAYLOAD_IMAGE), "Image payload.")
      .Member("File", Published(2, GS_PAYLOAD_FILE), "File payload.")
      .Member("ChunkImage", Published(0x4001, GS_PAYLOAD_CHUNK_IMAGE), "Chunk image payload.");
}

template <>
void TypeDef<State>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.State", "The possible states the GevServer can be in.")
      .Member("Configuration", Published(0, Tarn::GevServer::State::Configuration), "Configuration state.")
      .Member("Disconnected", Published(1, Tarn::GevServer::State::Disconnected),
              "Disconnected from remote client.")
      .Member("Connected", Published(2, Tarn::GevServer::State::Connected), "Connected to remote client.")
      .Member("AcquisitionEnabled", Published(3, Tarn::GevServer::State::AcquisitionEnabled),
              "Acquisition enabled state.");
}

template <>
void TypeDef<NameSpace>::Init() {
  EnumerationBuilder(Get(), "tarn.gevserver.NameSpace", "The possible name spaces a node can be in.")
      .Member("Standard", Published(0, GS_NAMESPACE_STANDARD), "Standard name space.")
      .Member("Custom", Published(1, GS_NAMESPACE_CUSTOM), "Custom name space.")
      .Member("Private", Published(2, GS_NAMESPACE_PRIVATE), "Private name space.");
}

}  // namespace _tarn::gevserver
