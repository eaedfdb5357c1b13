#include "gevserver/fake_server_library_test.h"

#include <algorithm>

#include "gevserver/library/tr_core.h"

namespace Tarn::Testing {

FakeServerLibrary& FakeServerLibrary::Instance() {
  static FakeServerLibrary library;
  return library;
}

void FakeNode::Fire(std::int32_t event) const {
  const auto snapshot = events;
  for (const auto& [cookie, listener] : snapshot) {
    if (listener.first == event) listener.second.first(listener.second.second);
  }
}

TR_HANDLE FakeServerLibrary::NewNode(const std::string& name, std::int32_t name_space, std::int32_t type) {
  const TR_HANDLE handle = FakeLibrary::Instance().NewHandle();
  FakeNode& node = nodes[handle];
  node.name = name;
  node.name_space = name_space;
  node.type = type;
  return handle;
}

TR_HANDLE FakeServerLibrary::AddStandardNode(const std::string& name, std::int32_t type) {
  const TR_HANDLE handle = NewNode(name, GS_NAMESPACE_STANDARD, type);
  map.emplace_back(name, handle);
  return handle;
}

void FakeServerLibrary::FireServerEvent(std::int32_t event) const {
  const auto found = server_events.find(event);
  if (found != server_events.end()) found->second.first(found->second.second);
}

}  // namespace Tarn::Testing

using Tarn::Testing::AnswerText;
using Tarn::Testing::FakeLibrary;
using Tarn::Testing::FakeNode;
using Tarn::Testing::FakeServerLibrary;

namespace {

FakeLibrary& Base() { return FakeLibrary::Instance(); }
FakeServerLibrary& Fake() { return FakeServerLibrary::Instance(); }

std::string Text(TR_HANDLE handle) { return std::to_string(reinterpret_cast<std::uintptr_t>(handle)); }

// Records the call and refuses handles that are not alive.
TR_STATUS Enter(const std::string& function, TR_HANDLE handle, const std::string& rest = {}) {
  const TR_STATUS failure = Base().Enter(function, Text(handle) + rest);
  if (failure != TR_OK) return failure;
  return Base().IsLive(handle) ? TR_OK : TR_E_INVALID_HANDLE;
}

TR_HANDLE Create(const char* function, const char* name, std::int32_t name_space, std::int32_t type) {
  if (Base().Enter(function, std::string(name) + ',' + std::to_string(name_space)) != TR_OK) return nullptr;
  return Fake().NewNode(name, name_space, type);
}

TR_HANDLE CreateRegister(const char* function, const char* name, std::int32_t name_space, std::int32_t type,
                         std::int64_t length) {
  const TR_HANDLE handle = Create(function, name, name_space, type);
  if (handle != nullptr) Fake().NodeOf(handle).integers[GSN_INFO_REGISTER_LENGTH] = length;
  return handle;
}

TR_HANDLE Shared(TR_HANDLE handle) {
  if (handle != nullptr) Base().Share(handle);
  return handle;
}

}  // namespace

extern "C" {

TR_HANDLE CreateGevServer() { return Base().Enter("CreateGevServer") ? nullptr : Base().NewHandle(); }

TR_HANDLE CreateGevServer2(std::int32_t driver_type, const GSCreationRecord* record) {
  if (Base().Enter("CreateGevServer2", std::to_string(driver_type))) return nullptr;
  Fake().record = *record;
  Fake().record_name = record->pixel_format_name;
  return Base().NewHandle();
}

TR_STATUS GSStartIPv4(TR_HANDLE server, std::uint32_t address) {
  if (const TR_STATUS failure = Enter("GSStartIPv4", server, ',' + std::to_string(address))) return failure;
  if (Fake().during_start) Fake().during_start();
  return TR_OK;
}

TR_STATUS GSStop(TR_HANDLE server) {
  if (const TR_STATUS failure = Enter("GSStop", server)) return failure;
  if (Fake().during_stop) Fake().during_stop();
  return TR_OK;
}

TR_STATUS GSDriverType(TR_HANDLE server, std::int32_t* type) {
  *type = GS_DRIVER_SOCKET;
  return Enter("GSDriverType", server);
}

TR_STATUS GSGetLocalIPv4(TR_HANDLE server, std::uint32_t* address, std::uint16_t* port) {
  *address = 0xC0A80001;
  *port = 3956;
  return Enter("GSGetLocalIPv4", server);
}

TR_STATUS GSGetRemoteIPv4(TR_HANDLE server, std::uint32_t*, std::uint16_t*) {
  return Enter("GSGetRemoteIPv4", server);
}

TR_STATUS GSGetInfoAsInteger(TR_HANDLE server, std::int32_t info, std::int64_t* value) {
  *value = 10 + info;
  return Enter("GSGetInfoAsInteger", server);
}

TR_STATUS GSSetInfoAsInteger(TR_HANDLE server, std::int32_t info, std::int64_t value) {
  return Enter("GSSetInfoAsInteger", server, ',' + std::to_string(info) + ',' + std::to_string(value));
}

TR_STATUS GSGetInfoAsString(TR_HANDLE server, std::int32_t, char* text, std::size_t* size) {
  if (const TR_STATUS failure = Enter("GSGetInfoAsString", server)) return failure;
  return AnswerText(std::string("version"), text, size);
}

TR_STATUS GSSetInfoAsString(TR_HANDLE server, std::int32_t info, const char* text) {
  return Enter("GSSetInfoAsString", server, ',' + std::to_string(info) + ',' + text);
}

TR_STATUS GSRegisterEvent(TR_HANDLE server, std::int32_t event, GSCallback callback, void* context,
                          std::uint64_t* cookie) {
  if (const TR_STATUS failure = Enter("GSRegisterEvent", server, ',' + std::to_string(event))) return failure;
  Fake().server_events[event] = {callback, context};
  *cookie = 1;
  return TR_OK;
}

TR_STATUS GSAddNode(TR_HANDLE server, TR_HANDLE node) {
  if (const TR_STATUS failure = Enter("GSAddNode", server, ',' + Text(node))) return failure;
  Fake().map.emplace_back(Fake().NodeOf(node).name, Shared(node));
  return TR_OK;
}

TR_STATUS GSRemoveNode(TR_HANDLE server, TR_HANDLE node) {
  if (const TR_STATUS failure = Enter("GSRemoveNode", server, ',' + Text(node))) return failure;
  std::erase_if(Fake().map, [node](const auto& row) { return row.second == node; });
  return TR_OK;
}

TR_STATUS GSGetNode(TR_HANDLE server, const char* name, TR_HANDLE* node) {
  if (const TR_STATUS failure = Enter("GSGetNode", server)) return failure;
  for (const auto& [known, handle] : Fake().map) {
    if (known != name) continue;
    *node = Shared(handle);
    return TR_OK;
  }
  return TR_E_NOT_FOUND;
}

TR_STATUS GSNodeCount(TR_HANDLE server, std::int64_t* count) {
  *count = static_cast<std::int64_t>(Fake().map.size());
  return Enter("GSNodeCount", server);
}

TR_STATUS GSNodeList(TR_HANDLE server, std::int64_t index, char* name, std::size_t* size) {
  const char* const function = name == nullptr ? "GSNodeList(size)" : "GSNodeList(name)";
  if (const TR_STATUS failure = Enter(function, server)) return failure;
  return AnswerText(Fake().map.at(static_cast<std::size_t>(index)).first, name, size);
}

TR_STATUS GSSendImage(TR_HANDLE server, TR_HANDLE) { return Enter("GSSendImage", server); }

TR_STATUS GSSendImageCB(TR_HANDLE server, TR_HANDLE, GSCallback released, void* context) {
  if (const TR_STATUS failure = Enter("GSSendImageCB", server)) return failure;
  Fake().pending.push_back({released, context});
  return TR_OK;
}

TR_STATUS GSGetPacketResendBuffers(TR_HANDLE server, std::int32_t* count) {
  if (const TR_STATUS failure = Enter("GSGetPacketResendBuffers", server)) return failure;
  *count = Fake().resend_buffers;
  return TR_OK;
}

TR_STATUS GSSetPacketResendBuffers(TR_HANDLE server, std::int32_t count) {
  if (const TR_STATUS failure = Enter("GSSetPacketResendBuffers", server)) return failure;
  Fake().resend_buffers = count;
  return TR_OK;
}

TR_STATUS GSGetLastErrorString(char* text, std::size_t* size) {
  const char* const function = text == nullptr ? "GSGetLastErrorString(size)" : "GSGetLastErrorString(text)";
  if (const TR_STATUS failure = Base().Enter(function)) return failure;
  return AnswerText(Fake().last_error, text, size);
}

#define TARN_FAKE_NODE(Function, Type)                            \
  TR_HANDLE Function(const char* name, std::int32_t name_space) { \
    return Create(#Function, name, name_space, Type);             \
  }
TARN_FAKE_NODE(CreateGSCategoryNode, GSN_TYPE_CATEGORY)
TARN_FAKE_NODE(CreateGSIntegerNode, GSN_TYPE_INTEGER)
TARN_FAKE_NODE(CreateGSFloatNode, GSN_TYPE_FLOAT)
TARN_FAKE_NODE(CreateGSBooleanNode, GSN_TYPE_BOOLEAN)
TARN_FAKE_NODE(CreateGSCommandNode, GSN_TYPE_COMMAND)
TARN_FAKE_NODE(CreateGSEnumerationNode, GSN_TYPE_ENUMERATION)
TARN_FAKE_NODE(CreateGSEnumEntryNode, GSN_TYPE_ENUM_ENTRY)
TARN_FAKE_NODE(CreateGSIntSwissKnifeNode, GSN_TYPE_INT_SWISS_KNIFE)
TARN_FAKE_NODE(CreateGSStringNodeEx, GSN_TYPE_STRING)
#undef TARN_FAKE_NODE

#define TARN_FAKE_REGISTER(Function, Type, Length)                              \
  TR_HANDLE Function(const char* name, std::int32_t name_space, std::int64_t) { \
    return CreateRegister(#Function, name, name_space, Type, Length);           \
  }
TARN_FAKE_REGISTER(CreateGSInt32Node, GSN_TYPE_INT_REG, 4)
TARN_FAKE_REGISTER(CreateGSInt64Node, GSN_TYPE_INT_REG, 8)
TARN_FAKE_REGISTER(CreateGSFloat32Node, GSN_TYPE_FLOAT_REG, 4)
TARN_FAKE_REGISTER(CreateGSFloat64Node, GSN_TYPE_FLOAT_REG, 8)
#undef TARN_FAKE_REGISTER

TR_HANDLE CreateGSStringRegNode(const char* name, std::int32_t name_space, std::int64_t,
                                std::int64_t length) {
  return CreateRegister("CreateGSStringRegNode", name, name_space, GSN_TYPE_STRING_REG, length);
}

TR_STATUS GSNType(TR_HANDLE node, std::int32_t* type) {
  if (const TR_STATUS failure = Enter("GSNType", node)) return failure;
  *type = Fake().NodeOf(node).type;
  return TR_OK;
}

TR_STATUS GSNGetInfoAsInteger(TR_HANDLE node, std::int32_t info, std::int64_t* value) {
  if (const TR_STATUS failure = Enter("GSNGetInfoAsInteger", node)) return failure;
  const FakeNode& fake = Fake().NodeOf(node);
  const auto found = fake.integers.find(info);
  *value = info == GSN_INFO_NAME_SPACE ? fake.name_space : found == fake.integers.end() ? 0 : found->second;
  return TR_OK;
}

TR_STATUS GSNSetInfoAsInteger(TR_HANDLE node, std::int32_t info, std::int64_t value) {
  if (const TR_STATUS failure = Enter("GSNSetInfoAsInteger", node)) return failure;
  Fake().NodeOf(node).integers[info] = value;
  return TR_OK;
}

TR_STATUS GSNGetInfoAsFloat(TR_HANDLE node, std::int32_t, double* value) {
  *value = 0.5;
  return Enter("GSNGetInfoAsFloat", node);
}

TR_STATUS GSNSetInfoAsFloat(TR_HANDLE node, std::int32_t, double) { return Enter("GSNSetInfoAsFloat", node); }

TR_STATUS GSNGetInfoAsString(TR_HANDLE node, std::int32_t info, char* text, std::size_t* size) {
  if (const TR_STATUS failure = Enter("GSNGetInfoAsString", node)) return failure;
  FakeNode& fake = Fake().NodeOf(node);
  constexpr const char* kPrefixes[] = {"Std::", "Cust::", "Priv::"};
  return AnswerText(info == GSN_INFO_NAME ? kPrefixes[fake.name_space] + fake.name : fake.texts[info], text,
                    size);
}

TR_STATUS GSNSetInfoAsString(TR_HANDLE node, std::int32_t info, const char* text) {
  if (const TR_STATUS failure = Enter("GSNSetInfoAsString", node)) return failure;
  Fake().NodeOf(node).texts[info] = text;
  return TR_OK;
}

TR_STATUS GSNGetInfoAsNode(TR_HANDLE node, std::int32_t info, TR_HANDLE* related) {
  if (const TR_STATUS failure = Enter("GSNGetInfoAsNode", node)) return failure;
  *related = Shared(Fake().NodeOf(node).nodes[info]);
  return TR_OK;
}

TR_STATUS GSNSetInfoAsNode(TR_HANDLE node, std::int32_t info, TR_HANDLE related) {
  if (const TR_STATUS failure = Enter("GSNSetInfoAsNode", node)) return failure;
  Fake().NodeOf(node).nodes[info] = Shared(related);
  return TR_OK;
}

TR_STATUS GSNGetAsInteger(TR_HANDLE node, std::int64_t* value) {
  *value = 7;
  return Enter("GSNGetAsInteger", node);
}
TR_STATUS GSNSetAsInteger(TR_HANDLE node, std::int64_t) { return Enter("GSNSetAsInteger", node); }
TR_STATUS GSNGetAsFloat(TR_HANDLE node, double* value) {
  *value = 7.5;
  return Enter("GSNGetAsFloat", node);
}
TR_STATUS GSNSetAsFloat(TR_HANDLE node, double) { return Enter("GSNSetAsFloat", node); }

TR_STATUS GSNGetAsBoolean(TR_HANDLE node, bool* value) {
  if (const TR_STATUS failure = Enter("GSNGetAsBoolean", node)) return failure;
  *value = Fake().NodeOf(node).boolean;
  return TR_OK;
}

TR_STATUS GSNSetAsBoolean(TR_HANDLE node, bool value) {
  if (const TR_STATUS failure = Enter("GSNSetAsBoolean", node)) return failure;
  Fake().NodeOf(node).boolean = value;
  return TR_OK;
}

TR_STATUS GSNGetAsString(TR_HANDLE node, char* text, std::size_t* size) {
  const char* const function = text == nullptr ? "GSNGetAsString(size)" : "GSNGetAsString(text)";
  if (const TR_STATUS failure = Enter(function, node)) return failure;
  return AnswerText(Fake().NodeOf(node).value, text, size);
}

TR_STATUS GSNSetAsString(TR_HANDLE node, const char* text) {
  if (const TR_STATUS failure = Enter("GSNSetAsString", node)) return failure;
  Fake().NodeOf(node).value = text;
  return TR_OK;
}

TR_STATUS GSNListCount(TR_HANDLE node, std::int32_t list, std::int64_t* count) {
  if (const TR_STATUS failure = Enter("GSNListCount", node)) return failure;
  *count = static_cast<std::int64_t>(Fake().NodeOf(node).lists[list].size());
  return TR_OK;
}

TR_STATUS GSNListEx(TR_HANDLE node, std::int32_t list, std::int64_t index, char* name, std::size_t* size,
                    TR_HANDLE* related) {
  if (const TR_STATUS failure = Enter("GSNListEx", node)) return failure;
  const TR_HANDLE handle = Fake().NodeOf(node).lists[list].at(static_cast<std::size_t>(index));
  if (related != nullptr) *related = Shared(handle);
  return AnswerText(Fake().NodeOf(handle).name, name, size);
}

TR_STATUS GSNAddNode(TR_HANDLE node, std::int32_t list, TR_HANDLE related) {
  const std::string rest = ',' + std::to_string(list) + ',' + Text(related);
  if (const TR_STATUS failure = Enter("GSNAddNode", node, rest)) return failure;
  FakeNode& fake = Fake().NodeOf(node);
  fake.lists[list].push_back(Shared(related));
  const FakeNode& added = Fake().NodeOf(related);
  const bool known = std::any_of(Fake().map.begin(), Fake().map.end(),
                                 [&](const auto& row) { return row.first == added.name; });
  if (added.type == GSN_TYPE_ENUM_ENTRY && !known) Fake().map.emplace_back(added.name, related);
  return TR_OK;
}

TR_STATUS GSNRemoveNode(TR_HANDLE node, std::int32_t list, TR_HANDLE related) {
  if (const TR_STATUS failure = Enter("GSNRemoveNode", node)) return failure;
  return std::erase(Fake().NodeOf(node).lists[list], related) == 0 ? TR_E_NOT_FOUND : TR_OK;
}

TR_STATUS GSNRegisterEventWithStatus(TR_HANDLE node, std::int32_t event, GSCallback callback, void* context,
                                     std::uint64_t* cookie) {
  const char* const function = event == GSN_EVENT_READ ? "Register(read)" : "Register(write)";
  if (const TR_STATUS failure = Enter(function, node)) return failure;
  static std::uint64_t last_cookie = 0;
  *cookie = ++last_cookie;
  Fake().NodeOf(node).events[*cookie] = {event, {callback, context}};
  return TR_OK;
}

TR_STATUS GSNUnregisterEvent(TR_HANDLE node, std::int32_t event, std::uint64_t cookie) {
  if (const TR_STATUS failure = Enter("GSNUnregisterEvent", node, ',' + std::to_string(event)))
    return failure;
  return Fake().NodeOf(node).events.erase(cookie) == 0 ? TR_E_NOT_FOUND : TR_OK;
}

TR_HANDLE CreateInterfaceList() { return Base().Enter("CreateInterfaceList") ? nullptr : Base().NewHandle(); }

std::uint64_t ILCount(TR_HANDLE) { return 2; }

TR_STATUS ILIPv4Address(TR_HANDLE list, std::uint64_t index, std::uint32_t* address) {
  *address = index == 0 ? 0x7F000001 : 0xC0A80001;
  return Enter("ILIPv4Address", list);
}

TR_STATUS ILIPv4SubnetMask(TR_HANDLE list, std::uint64_t index, std::uint32_t* mask) {
  *mask = index == 0 ? 0xFF000000 : 0xFFFFFF00;
  return Enter("ILIPv4SubnetMask", list);
}

}  // extern "C"
