// The server library as a C program meets it: every entry point with handles, outputs and buffers that are
// wrong, and the life of servers and nodes.

#include <string.h>

#include "gevserver/library/tr_core.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/library/tr_img.h"
#include "tests/capi/check.h"

static void never(void* context) { *(int*)context = 1; }

static int called;

// One function per entry point, all of one form. What they write on failure shows in `outputs`.
static union {
  int32_t i32;
  int64_t i64;
  uint32_t u32;
  uint64_t u64;
  double real;
  bool flag;
  char text[64];
  TR_HANDLE handle;
} outputs;
static uint16_t port_output;
static size_t size_output;

#define ENTRY(function, ...) \
  static TR_STATUS call_##function(TR_HANDLE object) { return function(object, __VA_ARGS__); }
#define OUT(member) (&outputs.member)

static TR_STATUS call_GSStop(TR_HANDLE server) { return GSStop(server); }
ENTRY(GSStartIPv4, 0x7F000001)
ENTRY(GSDriverType, OUT(i32))
ENTRY(GSGetLocalIPv4, OUT(u32), &port_output)
ENTRY(GSGetRemoteIPv4, OUT(u32), &port_output)
ENTRY(GSGetInfoAsInteger, GS_INFO_XML_VERSION_MAJOR, OUT(i64))
ENTRY(GSSetInfoAsInteger, GS_INFO_XML_VERSION_MAJOR, 1)
ENTRY(GSGetInfoAsString, GS_INFO_SERVER_USER_VERSION, outputs.text, &size_output)
ENTRY(GSSetInfoAsString, GS_INFO_SERVER_USER_VERSION, "1")
ENTRY(GSRegisterEvent, GS_EVENT_CONNECTED, never, &called, OUT(u64))
ENTRY(GSAddNode, NULL)
ENTRY(GSRemoveNode, NULL)
ENTRY(GSGetNode, "Width", OUT(handle))
ENTRY(GSNodeCount, OUT(i64))
ENTRY(GSNodeList, 0, outputs.text, &size_output)
ENTRY(GSSendImage, NULL)
ENTRY(GSSendImageCB, NULL, never, &called)
ENTRY(GSGetPacketResendBuffers, OUT(i32))
ENTRY(GSSetPacketResendBuffers, 1)
ENTRY(GSNType, OUT(i32))
ENTRY(GSNGetInfoAsInteger, GSN_INFO_VISIBILITY, OUT(i64))
ENTRY(GSNSetInfoAsInteger, GSN_INFO_VISIBILITY, 0)
ENTRY(GSNGetInfoAsFloat, GSN_INFO_MAX, OUT(real))
ENTRY(GSNSetInfoAsFloat, GSN_INFO_MAX, 1.0)
ENTRY(GSNGetInfoAsString, GSN_INFO_NAME, outputs.text, &size_output)
ENTRY(GSNSetInfoAsString, GSN_INFO_DISPLAY_NAME, "x")
ENTRY(GSNGetInfoAsNode, GSN_INFO_IS_LOCKED, OUT(handle))
ENTRY(GSNSetInfoAsNode, GSN_INFO_IS_LOCKED, NULL)
ENTRY(GSNGetAsInteger, OUT(i64))
ENTRY(GSNSetAsInteger, 1)
ENTRY(GSNGetAsFloat, OUT(real))
ENTRY(GSNSetAsFloat, 1.0)
ENTRY(GSNGetAsBoolean, OUT(flag))
ENTRY(GSNSetAsBoolean, true)
ENTRY(GSNGetAsString, outputs.text, &size_output)
ENTRY(GSNSetAsString, "1")
ENTRY(GSNListCount, GSN_LIST_CHILD, OUT(i64))
ENTRY(GSNListEx, GSN_LIST_CHILD, 0, outputs.text, &size_output, NULL)
ENTRY(GSNGetNode, GSN_LIST_CHILD, "x", OUT(handle))
ENTRY(GSNAddNode, GSN_LIST_CHILD, NULL)
ENTRY(GSNAddNodeEx, GSN_LIST_CHILD, NULL, NULL)
ENTRY(GSNRemoveNode, GSN_LIST_CHILD, NULL)
ENTRY(GSNRegisterEventWithStatus, GSN_EVENT_READ, never, &called, OUT(u64))
ENTRY(GSNUnregisterEvent, GSN_EVENT_READ, 1)
ENTRY(ILIPv4Address, 0, OUT(u32))
ENTRY(ILIPv4SubnetMask, 0, OUT(u32))

typedef struct Call {
  const char* name;
  TR_STATUS (*run)(TR_HANDLE object);
} Call;

#define ROW(function) \
  { #function, call_##function }
static const Call kServerCalls[] = {ROW(GSStop),
                                    ROW(GSStartIPv4),
                                    ROW(GSDriverType),
                                    ROW(GSGetLocalIPv4),
                                    ROW(GSGetRemoteIPv4),
                                    ROW(GSGetInfoAsInteger),
                                    ROW(GSSetInfoAsInteger),
                                    ROW(GSGetInfoAsString),
                                    ROW(GSSetInfoAsString),
                                    ROW(GSRegisterEvent),
                                    ROW(GSAddNode),
                                    ROW(GSRemoveNode),
                                    ROW(GSGetNode),
                                    ROW(GSNodeCount),
                                    ROW(GSNodeList),
                                    ROW(GSSendImage),
                                    ROW(GSSendImageCB),
                                    ROW(GSGetPacketResendBuffers),
                                    ROW(GSSetPacketResendBuffers)};
static const Call kNodeCalls[] = {ROW(GSNType),
                                  ROW(GSNGetInfoAsInteger),
                                  ROW(GSNSetInfoAsInteger),
                                  ROW(GSNGetInfoAsFloat),
                                  ROW(GSNSetInfoAsFloat),
                                  ROW(GSNGetInfoAsString),
                                  ROW(GSNSetInfoAsString),
                                  ROW(GSNGetInfoAsNode),
                                  ROW(GSNSetInfoAsNode),
                                  ROW(GSNGetAsInteger),
                                  ROW(GSNSetAsInteger),
                                  ROW(GSNGetAsFloat),
                                  ROW(GSNSetAsFloat),
                                  ROW(GSNGetAsBoolean),
                                  ROW(GSNSetAsBoolean),
                                  ROW(GSNGetAsString),
                                  ROW(GSNSetAsString),
                                  ROW(GSNListCount),
                                  ROW(GSNListEx),
                                  ROW(GSNGetNode),
                                  ROW(GSNAddNode),
                                  ROW(GSNAddNodeEx),
                                  ROW(GSNRemoveNode),
                                  ROW(GSNRegisterEventWithStatus),
                                  ROW(GSNUnregisterEvent)};
static const Call kListCalls[] = {ROW(ILIPv4Address), ROW(ILIPv4SubnetMask)};
#define COUNT(array) (sizeof(array) / sizeof((array)[0]))

/// Every call refuses every handle, and leaves its outputs as they were.
static void refuse(const Call* calls, size_t call_count, const TR_HANDLE* handles, size_t handle_count) {
  for (size_t c = 0; c < call_count; ++c) {
    for (size_t h = 0; h < handle_count; ++h) {
      memset(&outputs, 0x5A, sizeof outputs);
      port_output = 0x5A5A;
      size_output = sizeof outputs.text;
      CHECK_ROW(calls[c].name, calls[c].run(handles[h]), TR_E_INVALID_HANDLE);
      CHECK_ROW(calls[c].name, outputs.u64, 0x5A5A5A5A5A5A5A5A);
      CHECK_ROW(calls[c].name, port_output, 0x5A5A);
      CHECK_ROW(calls[c].name, size_output, sizeof outputs.text);
    }
  }
}

static void test_bad_handles(void) {
  TR_HANDLE server = CreateGevServer();
  TR_HANDLE node = CreateGSIntegerNode("Level", GS_NAMESPACE_CUSTOM);
  TR_HANDLE list = CreateInterfaceList();
  TR_HANDLE gone = CreateGSIntegerNode("Gone", GS_NAMESPACE_CUSTOM);
  const TR_HANDLE stale = gone;
  CHECK(server != NULL && node != NULL && list != NULL && gone != NULL);
  CHECK_EQUAL(ReleaseObject(&gone), TR_OK);

  const TR_HANDLE no_server[] = {NULL, stale, &called, node, list};
  const TR_HANDLE no_node[] = {NULL, stale, &called, server, list};
  const TR_HANDLE no_list[] = {NULL, stale, &called, server, node};
  refuse(kServerCalls, COUNT(kServerCalls), no_server, COUNT(no_server));
  refuse(kNodeCalls, COUNT(kNodeCalls), no_node, COUNT(no_node));
  refuse(kListCalls, COUNT(kListCalls), no_list, COUNT(no_list));
  for (size_t i = 0; i < COUNT(no_list); ++i) CHECK_EQUAL(ILCount(no_list[i]), 0);

  // In the place of a related node too.
  CHECK_EQUAL(GSAddNode(server, stale), TR_E_INVALID_HANDLE);
  CHECK_EQUAL(GSAddNode(server, server), TR_E_INVALID_HANDLE);
  CHECK_EQUAL(GSNSetInfoAsNode(node, GSN_INFO_IS_LOCKED, stale), TR_E_INVALID_HANDLE);

  CHECK_EQUAL(called, 0);
  CHECK_EQUAL(ReleaseObject(&list), TR_OK);
  CHECK_EQUAL(ReleaseObject(&node), TR_OK);
  CHECK_EQUAL(ReleaseObject(&server), TR_OK);
}

static void test_missing_outputs(void) {
  TR_HANDLE server = CreateGevServer();
  TR_HANDLE node = CreateGSIntegerNode("Level", GS_NAMESPACE_CUSTOM);
  TR_HANDLE list = CreateInterfaceList();
  uint32_t address = 0;
  uint16_t port = 0;
  CHECK_EQUAL(GSDriverType(server, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSGetLocalIPv4(server, NULL, &port), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSGetRemoteIPv4(server, &address, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSGetInfoAsInteger(server, GS_INFO_XML_VERSION_MAJOR, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSSetInfoAsString(server, GS_INFO_SERVER_USER_VERSION, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSNodeCount(server, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSGetNode(server, NULL, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSGetPacketResendBuffers(server, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSNType(node, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSNGetInfoAsInteger(node, GSN_INFO_VISIBILITY, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSNSetInfoAsString(node, GSN_INFO_TOOL_TIP, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSNGetAsInteger(node, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(GSNSetAsString(node, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(ILIPv4Address(list, 0, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(ILIPv4SubnetMask(list, ILCount(list), &address), TR_E_OUT_OF_RANGE);
  CHECK_EQUAL(ReleaseObject(&list), TR_OK);
  CHECK_EQUAL(ReleaseObject(&node), TR_OK);
  CHECK_EQUAL(ReleaseObject(&server), TR_OK);
}

/// The two-call protocol, whole: `fetch(object, text, size)` must yield `wanted` and keep to the buffer.
typedef TR_STATUS (*Fetch)(TR_HANDLE object, char* text, size_t* size);

static void check_text(const char* name, Fetch fetch, TR_HANDLE object, const char* wanted) {
  const size_t needed = strlen(wanted) + 1;
  size_t size = 0;
  CHECK_ROW(name, fetch(object, NULL, &size), TR_OK);
  CHECK_ROW(name, size, needed);

  char text[128];
  memset(text, 'x', sizeof text);
  size = needed - 1;
  CHECK_ROW(name, fetch(object, text, &size), TR_E_BUFFER_TOO_SMALL);
  CHECK_ROW(name, size, needed - 1);
  CHECK_ROW(name, fetch(object, text, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_ROW(name, text[0], 'x');

  size = needed;
  CHECK_ROW(name, fetch(object, text, &size), TR_OK);
  CHECK_ROW(name, size, needed);
  CHECK_ROW(name, strcmp(text, wanted), 0);
  CHECK_ROW(name, text[needed], 'x');
}

static TR_STATUS last_error(TR_HANDLE unused, char* text, size_t* size) {
  (void)unused;
  return GSGetLastErrorString(text, size);
}
static TR_STATUS user_version(TR_HANDLE server, char* text, size_t* size) {
  return GSGetInfoAsString(server, GS_INFO_SERVER_USER_VERSION, text, size);
}
static TR_STATUS tool_tip(TR_HANDLE node, char* text, size_t* size) {
  return GSNGetInfoAsString(node, GSN_INFO_TOOL_TIP, text, size);
}
static TR_STATUS first_child(TR_HANDLE node, char* text, size_t* size) {
  return GSNListEx(node, GSN_LIST_CHILD, 0, text, size, NULL);
}

static void test_texts(void) {
  TR_HANDLE server = CreateGevServer();
  TR_HANDLE folder = CreateGSCategoryNode("Folder", GS_NAMESPACE_CUSTOM);
  TR_HANDLE text = CreateGSStringNodeEx("Text", GS_NAMESPACE_CUSTOM);
  CHECK_EQUAL(GSSetInfoAsString(server, GS_INFO_SERVER_USER_VERSION, "4.5"), TR_OK);
  CHECK_EQUAL(GSNSetInfoAsString(text, GSN_INFO_TOOL_TIP,
                                 "gr\xC3\xBC\xC3\x9F"
                                 "e"),
              TR_OK);
  CHECK_EQUAL(GSNSetAsString(text, "value"), TR_OK);
  CHECK_EQUAL(GSAddNode(server, text), TR_OK);
  CHECK_EQUAL(GSAddNode(server, folder), TR_OK);
  CHECK_EQUAL(GSNAddNode(folder, GSN_LIST_CHILD, text), TR_OK);
  check_text("user version", user_version, server, "4.5");
  check_text("tool tip", tool_tip, text,
             "gr\xC3\xBC\xC3\x9F"
             "e");
  check_text("value", GSNGetAsString, text, "value");
  check_text("child", first_child, folder, "Text");

  // An image library's failure is this library's last error too, and fetching it doesn't replace it.
  CHECK_EQUAL(ImageWidth(NULL), 0);
  check_text("last error", last_error, NULL, "the handle is null");

  int64_t count = 0;
  char name[128];
  int found = 0;
  CHECK_EQUAL(GSNodeCount(server, &count), TR_OK);
  for (int64_t i = 0; i < count; ++i) {
    size_t size = sizeof name;
    CHECK_EQUAL(GSNodeList(server, i, name, &size), TR_OK);
    found += strcmp(name, "Text") == 0;
  }
  CHECK_EQUAL(found, 1);
  size_t size = sizeof name;
  CHECK(GSNodeList(server, count, name, &size) < 0);
  CHECK(GSNodeList(server, -1, name, &size) < 0);
  CHECK_EQUAL(ReleaseObject(&text), TR_OK);
  CHECK_EQUAL(ReleaseObject(&folder), TR_OK);
  CHECK_EQUAL(ReleaseObject(&server), TR_OK);
}

static void test_references_to_nodes(void) {
  const uint64_t before = TRCLiveHandleCount();
  TR_HANDLE server = CreateGevServer();
  TR_HANDLE made = CreateGSIntegerNode("Level", GS_NAMESPACE_CUSTOM);
  CHECK_EQUAL(GSNSetAsInteger(made, 42), TR_OK);
  CHECK_EQUAL(GSAddNode(server, made), TR_OK);
  CHECK_EQUAL(ReleaseObject(&made), TR_OK);

  // The server keeps its node; who fetches it has a reference of his own, beyond the server's life.
  TR_HANDLE fetched = NULL;
  CHECK_EQUAL(GSGetNode(server, "Level", &fetched), TR_OK);
  CHECK_EQUAL(ReleaseObject(&server), TR_OK);
  int64_t value = 0;
  CHECK_EQUAL(GSNGetAsInteger(fetched, &value), TR_OK);
  CHECK_EQUAL(value, 42);
  CHECK_EQUAL(ReleaseObject(&fetched), TR_OK);
  CHECK_EQUAL(TRCLiveHandleCount(), before);
}

static void test_node_kinds(void) {
  static const struct {
    TR_HANDLE (*create)(const char* name, int32_t name_space);
    int32_t type;
  } kPlain[] = {
      {CreateGSCategoryNode, GSN_TYPE_CATEGORY},    {CreateGSIntegerNode, GSN_TYPE_INTEGER},
      {CreateGSFloatNode, GSN_TYPE_FLOAT},          {CreateGSBooleanNode, GSN_TYPE_BOOLEAN},
      {CreateGSCommandNode, GSN_TYPE_COMMAND},      {CreateGSEnumerationNode, GSN_TYPE_ENUMERATION},
      {CreateGSEnumEntryNode, GSN_TYPE_ENUM_ENTRY}, {CreateGSIntSwissKnifeNode, GSN_TYPE_INT_SWISS_KNIFE},
      {CreateGSStringNodeEx, GSN_TYPE_STRING}};
  static const struct {
    TR_HANDLE (*create)(const char* name, int32_t name_space, int64_t address);
    int32_t type;
    int64_t length;
  } kRegisters[] = {{CreateGSInt32Node, GSN_TYPE_INT_REG, 4},
                    {CreateGSInt64Node, GSN_TYPE_INT_REG, 8},
                    {CreateGSFloat32Node, GSN_TYPE_FLOAT_REG, 4},
                    {CreateGSFloat64Node, GSN_TYPE_FLOAT_REG, 8}};
  int32_t type = -1;
  for (size_t i = 0; i < COUNT(kPlain); ++i) {
    TR_HANDLE node = kPlain[i].create("Name", GS_NAMESPACE_CUSTOM);
    CHECK_EQUAL(GSNType(node, &type), TR_OK);
    CHECK_EQUAL(type, kPlain[i].type);
    CHECK_EQUAL(ReleaseObject(&node), TR_OK);
    CHECK(kPlain[i].create(NULL, GS_NAMESPACE_CUSTOM) == NULL);
    CHECK(kPlain[i].create("no name", GS_NAMESPACE_CUSTOM) == NULL);
    CHECK(kPlain[i].create("Name", 77) == NULL);
  }
  int64_t length = 0;
  for (size_t i = 0; i < COUNT(kRegisters); ++i) {
    TR_HANDLE node = kRegisters[i].create("Name", GS_NAMESPACE_CUSTOM, -1);
    CHECK_EQUAL(GSNType(node, &type), TR_OK);
    CHECK_EQUAL(type, kRegisters[i].type);
    CHECK_EQUAL(GSNGetInfoAsInteger(node, GSN_INFO_REGISTER_LENGTH, &length), TR_OK);
    CHECK_EQUAL(length, kRegisters[i].length);
    CHECK_EQUAL(ReleaseObject(&node), TR_OK);
    CHECK(kRegisters[i].create("", GS_NAMESPACE_CUSTOM, -1) == NULL);
  }
  TR_HANDLE node = CreateGSStringRegNode("Name", GS_NAMESPACE_CUSTOM, -1, 16);
  CHECK_EQUAL(GSNType(node, &type), TR_OK);
  CHECK_EQUAL(type, GSN_TYPE_STRING_REG);
  CHECK_EQUAL(ReleaseObject(&node), TR_OK);
  CHECK(CreateGSStringRegNode("Name", GS_NAMESPACE_CUSTOM, -1, 6) == NULL);
  CHECK(CreateGSStringRegNode("Name", GS_NAMESPACE_CUSTOM, -1, 0) == NULL);
}

static void test_streaming_server(void) {
  const uint64_t before = TRCLiveHandleCount();
  const GSCreationRecord good = {.init_type = GS_INIT_FIXED_SIZE,
                                 .pixel_format = 0x01080001,
                                 .pixel_format_name = "Mono8",
                                 .width = 16,
                                 .height = 8};
  GSCreationRecord bad = good;
  CHECK(CreateGevServer2(GS_DRIVER_AUTO, NULL) == NULL);
  CHECK(CreateGevServer2(7, &good) == NULL);
  bad.width = 0;
  CHECK(CreateGevServer2(GS_DRIVER_AUTO, &bad) == NULL);
  bad = good;
  bad.init_type = 9;
  CHECK(CreateGevServer2(GS_DRIVER_AUTO, &bad) == NULL);

  TR_HANDLE server = CreateGevServer2(GS_DRIVER_AUTO, &good);
  CHECK(server != NULL);
  // 203.0.113.1, reserved for documents: nobody has it.
  CHECK_EQUAL(GSStartIPv4(server, 0xCB007101), TR_E_SYSTEM);
  char text[128] = "";
  size_t size = sizeof text;
  CHECK_EQUAL(GSGetLastErrorString(text, &size), TR_OK);
  CHECK(strstr(text, "203.0.113.1 port 3956") != NULL);
  CHECK_EQUAL(GSSetPacketResendBuffers(server, -1), TR_E_OUT_OF_RANGE);
  CHECK_EQUAL(GSSetPacketResendBuffers(server, 1025), TR_E_OUT_OF_RANGE);

  // A refused image's release callback is not called.
  CHECK(GSSendImageCB(server, NULL, never, &called) < 0);
  CHECK(GSSendImageCB(server, server, never, &called) < 0);
  CHECK_EQUAL(called, 0);
  CHECK_EQUAL(GSStop(server), TR_OK);
  CHECK_EQUAL(GSStop(server), TR_OK);
  CHECK_EQUAL(ReleaseObject(&server), TR_OK);
  CHECK_EQUAL(TRCLiveHandleCount(), before);
}

static void test_interfaces(void) {
  TR_HANDLE list = CreateInterfaceList();
  int loopback = 0;
  for (uint64_t i = 0; i < ILCount(list); ++i) {
    uint32_t address = 0;
    uint32_t mask = 0;
    CHECK_EQUAL(ILIPv4Address(list, i, &address), TR_OK);
    CHECK_EQUAL(ILIPv4SubnetMask(list, i, &mask), TR_OK);
    loopback += address == 0x7F000001 && mask == 0xFF000000;
  }
  CHECK_EQUAL(loopback, 1);
  CHECK_EQUAL(ReleaseObject(&list), TR_OK);
}

int main(void) {
  const uint64_t before = TRCLiveHandleCount();
  test_bad_handles();
  test_missing_outputs();
  test_texts();
  test_references_to_nodes();
  test_node_kinds();
  test_streaming_server();
  test_interfaces();
  CHECK_EQUAL(TRCLiveHandleCount(), before);
  return check_failures != 0;
}
