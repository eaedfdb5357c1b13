// The libraries as a C program meets them: what they refuse, texts, and images over memory.

// POSIX threads, since the thread sanitizer does not know those of C11.
#include <inttypes.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "gevserver/library/tr_core.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/library/tr_img.h"
#include "gevserver/library/tr_utilities.h"

#define COUNT(array) (sizeof(array) / sizeof((array)[0]))

static int failures;

static void check_equal(int64_t got, int64_t wanted, const char* what, int line) {
  if (got == wanted) return;
  ++failures;
  printf("line %d: %s is %" PRId64 " (0x%08" PRIX32 "), not %" PRId64 " (0x%08" PRIX32 ")\n", line, what, got,
         (uint32_t)got, wanted, (uint32_t)wanted);
}

#define IS(got, wanted) check_equal((int64_t)(got), (int64_t)(wanted), #got, __LINE__)
#define CHECK(condition) IS((condition) ? 1 : 0, 1)

static void count(void* number) { ++*(int*)number; }

static void never(void* unused) {
  (void)unused;
  check_equal(1, 0, "called back", __LINE__);
}

static void release(TR_HANDLE handle) { IS(ReleaseObject(&handle), TR_OK); }

/// What calls may write, which they don't when they fail.
static _Alignas(8) char outputs[16];
static void *const out = outputs, *const more = outputs + 8;

static void check_refused(const char* call, TR_STATUS got, TR_STATUS wanted, int line) {
  check_equal(got, wanted, call, line);
  check_equal(memcmp(outputs, "xxxxxxxxxxxxxxxx", sizeof outputs), 0, call, line);
}

#define REFUSES(status, call) \
  (memset(outputs, 'x', sizeof outputs), check_refused(#call, call, status, __LINE__))
#define BAD_HANDLE(call) REFUSES(TR_E_INVALID_HANDLE, call)
#define BAD_ARGUMENT(call) REFUSES(TR_E_INVALID_ARGUMENT, call)

/// One call of each way to reach what a handle stands for.
static void test_bad_handles(void) {
  const TR_HANDLE server = CreateGevServer();
  const TR_HANDLE node = CreateGSIntegerNode("Level", GS_NAMESPACE_CUSTOM);
  const TR_HANDLE list = CreateInterfaceList();
  TR_HANDLE image = NULL;
  IS(CreateImage(1, 1, 1, 8, &image), TR_OK);
  TR_HANDLE gone = CreateGSIntegerNode("Gone", GS_NAMESPACE_CUSTOM);
  const TR_HANDLE stale = gone;
  IS(ReleaseObject(&gone), TR_OK);
  CHECK(gone == NULL);
  const TR_HANDLE bad[] = {NULL, stale, out, (TR_HANDLE)(intptr_t)-1, server, node, list, image};
  for (size_t i = 0; i < COUNT(bad); ++i) {
    TR_HANDLE variable = bad[i];
    if (bad[i] != server) {
      BAD_HANDLE(GSStop(bad[i]));
      BAD_HANDLE(GSDriverType(bad[i], out));
      BAD_HANDLE(GSGetLocalIPv4(bad[i], out, more));
      BAD_HANDLE(GSAddNode(bad[i], node));
      BAD_HANDLE(GSSendImageCB(bad[i], image, never, NULL));
    }
    if (bad[i] != node) {
      BAD_HANDLE(GSNType(bad[i], out));
      BAD_HANDLE(GSNSetAsInteger(bad[i], 1));
      BAD_HANDLE(GSNGetInfoAsNode(bad[i], GSN_INFO_IS_LOCKED, out));
      BAD_HANDLE(GSAddNode(server, bad[i]));
      BAD_HANDLE(GSRemoveNode(server, bad[i]));
      BAD_HANDLE(GSNSetInfoAsNode(node, GSN_INFO_IS_LOCKED, bad[i]));
      BAD_HANDLE(GSNAddNode(node, GSN_LIST_CHILD, bad[i]));
      BAD_HANDLE(GSNRemoveNode(node, GSN_LIST_CHILD, bad[i]));
    }
    if (bad[i] != image) {
      REFUSES(false, GetLinearAccess(bad[i], 0, out, more, more));
      BAD_HANDLE(GetImageVPA(bad[i], 0, out, more));
      BAD_HANDLE(CreateConcatenatedImage(&bad[i], 1, out));
      BAD_HANDLE(GSSendImageCB(server, bad[i], never, NULL));
    }
    if (bad[i] != list) BAD_HANDLE(ILIPv4SubnetMask(bad[i], 0, out));
    if (i > 3) continue;
    BAD_HANDLE(ShareObject(bad[i]));
    BAD_HANDLE(ReleaseObject(&variable));
    CHECK(variable == bad[i]);
  }
  BAD_HANDLE(ReleaseObject(NULL));
  CHECK(TRCCreateHandle(NULL, 1, count) == NULL);
  CHECK(TRCCreateHandle(out, 0, count) == NULL);
  CHECK(TRCCreateHandle(out, 1, NULL) == NULL);
  for (size_t i = 4; i < COUNT(bad); ++i) release(bad[i]);
}

static void test_bad_arguments(void) {
  const GSCreationRecord good = {GS_INIT_FIXED_SIZE, 0x01080001, "Mono8", 16, 8, {0}, 0, 0};
  GSCreationRecord bad[] = {good, good, good, good};
  bad[0].width = bad[1].height = 0;
  bad[2].init_type = 9;
  bad[3].pixel_format = 0;
  for (size_t i = 0; i < COUNT(bad); ++i) CHECK(CreateGevServer2(GS_DRIVER_AUTO, &bad[i]) == NULL);
  CHECK(CreateGevServer2(GS_DRIVER_AUTO, NULL) == NULL);
  CHECK(CreateGevServer2(GS_DRIVER_AUTO - 1, &good) == NULL);
  CHECK(CreateGevServer2(GS_DRIVER_FILTER + 1, &good) == NULL);
  CHECK(CreateGSIntegerNode(NULL, GS_NAMESPACE_CUSTOM) == NULL);
  CHECK(CreateGSInt32Node("", GS_NAMESPACE_CUSTOM, -1) == NULL);
  CHECK(CreateGSStringRegNode("Name", GS_NAMESPACE_CUSTOM, -1, 0) == NULL);

  TR_HANDLE server = CreateGevServer2(GS_DRIVER_AUTO, &good);
  BAD_ARGUMENT(GSGetLocalIPv4(server, NULL, more));
  BAD_ARGUMENT(GSGetLocalIPv4(server, out, NULL));
  BAD_ARGUMENT(GSSetInfoAsString(server, GS_INFO_SERVER_USER_VERSION, NULL));
  BAD_ARGUMENT(GSRegisterEvent(server, GS_EVENT_CONNECTED - 1, never, NULL, out));
  BAD_ARGUMENT(GSRegisterEvent(server, GS_EVENT_IMAGE_SNAPPED + 1, never, NULL, out));
  BAD_ARGUMENT(GSRegisterEvent(server, GS_EVENT_CONNECTED, NULL, NULL, out));
  BAD_ARGUMENT(GSNodeCount(server, NULL));
  BAD_ARGUMENT(GSGetNode(server, NULL, out));
  REFUSES(TR_E_NOT_SUPPORTED, GSGetInfoAsInteger(server, GS_INFO_SERVER_USER_VERSION, out));
  REFUSES(TR_E_NOT_FOUND, GSGetNode(server, "Nobody", out));
  REFUSES(TR_E_OUT_OF_RANGE, GSSetPacketResendBuffers(server, -1));
  REFUSES(TR_E_OUT_OF_RANGE, GSSetPacketResendBuffers(server, 1025));
  REFUSES(TR_E_SYSTEM, GSStartIPv4(server, 0xCB007101));  // 203.0.113.1: nobody has it

  TR_HANDLE node = CreateGSIntegerNode("Level", GS_NAMESPACE_CUSTOM);
  BAD_ARGUMENT(GSNGetAsInteger(node, NULL));
  BAD_ARGUMENT(GSNSetAsString(node, NULL));
  BAD_ARGUMENT(GSNGetInfoAsNode(node, GSN_INFO_IS_LOCKED, NULL));
  BAD_ARGUMENT(GSNListCount(node, GSN_LIST_CHILD - 1, out));
  BAD_ARGUMENT(GSNListCount(node, GSN_LIST_ADDRESSES + 1, out));
  BAD_ARGUMENT(GSNRegisterEventWithStatus(node, GSN_EVENT_READ, NULL, NULL, out));
  REFUSES(TR_E_NOT_FOUND, GSNUnregisterEvent(node, GSN_EVENT_READ, 0));
  REFUSES(TR_E_NOT_FOUND, GSNSetEventActive(node, GSN_EVENT_READ, 0, true));
  REFUSES(TR_E_NOT_FOUND, GSNListEx(node, GSN_LIST_CHILD, 0, NULL, &(size_t){0}, out));

  TR_HANDLE list = CreateInterfaceList();
  BAD_ARGUMENT(ILIPv4Address(list, 0, NULL));
  REFUSES(TR_E_OUT_OF_RANGE, ILIPv4SubnetMask(list, ILCount(list), out));
  release(server);
  release(node);
  release(list);
}

/// The two-call protocol, whole.
static void test_texts(void) {
  TR_HANDLE node = CreateGSStringNodeEx("Text", GS_NAMESPACE_CUSTOM);
  IS(GSNSetAsString(node, "gr\u00fc\u00dfe"), TR_OK);
  const size_t needed = strlen("gr\u00fc\u00dfe") + 1;
  size_t size = 0;
  char text[] = "xxxxxxxxxxxx";
  IS(GSNGetAsString(node, NULL, &size), TR_OK);
  IS(size, needed);
  size = needed - 1;
  IS(GSNGetAsString(node, text, &size), TR_E_BUFFER_TOO_SMALL);
  IS(GSNGetAsString(node, text, NULL), TR_E_INVALID_ARGUMENT);
  IS(size, needed - 1);
  IS(text[0], 'x');
  size = needed;
  IS(GSNGetAsString(node, text, &size), TR_OK);
  IS(size, needed);
  CHECK(strcmp(text, "gr\u00fc\u00dfe") == 0 && text[needed] == 'x');
  release(node);
}

static void* fresh_thread_has_no_error(void* unused) {
  (void)unused;
  TR_STATUS code = -1;
  size_t size = 0;
  IS(TRCGetLastErrorW(&code, NULL, &size), TR_OK);
  CHECK(code == TR_OK && size == 1);
  TRCSetLastError(TR_E_FAILED, "of this thread");
  return NULL;
}

static void test_last_error(void) {
  const char* const wanted = "the handle is null";
  IS(ImageWidth(NULL), 0);
  pthread_t other;
  CHECK(pthread_create(&other, NULL, fresh_thread_has_no_error, NULL) == 0);
  pthread_join(other, NULL);

  // All libraries have the same one, and what can't be fetched doesn't replace what is to be fetched.
  TR_STATUS code = 0;
  wchar_t wide[64] = L"untouched";
  char text[64];
  size_t size = 5;
  IS(TRCGetLastErrorW(&code, wide, &size), TR_E_BUFFER_TOO_SMALL);
  IS(GSGetLastErrorString(text, NULL), TR_E_INVALID_ARGUMENT);
  CHECK(wcscmp(wide, L"untouched") == 0 && size == 5);
  IS(TRCGetLastErrorW(&code, NULL, &size), TR_OK);
  IS(code, TR_E_INVALID_HANDLE);
  IS(size, strlen(wanted) + 1);
  IS(GSGetLastErrorString(text, &size), TR_OK);
  CHECK(strcmp(text, wanted) == 0 && strcmp(TRCLastErrorText(), wanted) == 0);

  // Characters of one to four bytes, then bytes that are none: a stray one, an overlong form, a half character.
  TRCSetLastError(TR_E_FAILED, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xFF\xC0\x80\xE2\x82");
  size = COUNT(wide);
  IS(TRCGetLastErrorW(NULL, wide, &size), TR_OK);
  CHECK(wcscmp(wide, L"a\u00e9\u20ac\U0001F600\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD") == 0);

  // A long text is cut between characters, and may be that of before.
  char endless[4000];
  for (size_t i = 0; i + 1 < sizeof endless; ++i) endless[i] = i % 2 == 0 ? '\xC3' : '\xA9';
  endless[sizeof endless - 1] = 0;
  TRCSetLastError(TR_E_FAILED, endless);
  const size_t kept = strlen(TRCLastErrorText());
  CHECK(kept > 500 && kept % 2 == 0);
  TRCSetLastError(TR_E_FAILED, TRCLastErrorText());
  IS(strlen(TRCLastErrorText()), kept);
}

static void test_images_over_memory(void) {
  uint16_t pixels[2][3] = {{1, 2, 3}, {4, 5, 6}};
  const TRPlaneLayout layout = {pixels, sizeof(uint16_t), sizeof pixels[0]};
  int released = 0;
  TR_HANDLE wrapped = NULL, owned = NULL, other = NULL, both = NULL;
#define WRAP(height, planes, layouts, image) \
  CreateImageFromPointer(3, height, planes, 16, layouts, count, &released, image)
  BAD_ARGUMENT(WRAP(0, 1, &layout, out));
  BAD_ARGUMENT(WRAP(2, INT64_MAX, &layout, out));
  BAD_ARGUMENT(WRAP(2, 1, NULL, out));
  BAD_ARGUMENT(WRAP(2, 1, &layout, NULL));
  IS(released, 0);
  IS(WRAP(2, 1, &layout, &wrapped), TR_OK);
  IS(CreateImage(3, 2, 2, 8, &owned), TR_OK);
  IS(CreateImage(2, 3, 1, 8, &other), TR_OK);
  const TR_HANDLE equal[] = {wrapped, owned}, unequal[] = {wrapped, other};
  BAD_ARGUMENT(CreateConcatenatedImage(equal, 0, out));
  BAD_ARGUMENT(CreateConcatenatedImage(unequal, 2, out));
  IS(strcmp(TRCLastErrorText(), "image 1 measures 2 x 3 pixels, the first 3 x 2"), 0);
  // The concatenation outlives the handles that it was made of, and keeps their memory.
  IS(CreateConcatenatedImage(equal, 2, &both), TR_OK);
  release(wrapped);
  release(owned);
  release(other);
  IS(released, 0);
  IS(ImageDimension(both), 3);
  IS(ImageDatatype(both, 0), 16);
  IS(ImageDatatype(both, 2), 8);
  REFUSES(TR_E_OUT_OF_RANGE, GetImageVPA(both, 3, out, more));
  BAD_ARGUMENT(GetImageVPA(both, 0, NULL, more));
  const TRVpaEntry* table = NULL;
  void* base = NULL;
  uint16_t sample = 0;
  IS(GetImageVPA(both, 0, &base, &table), TR_OK);
  if (table != NULL) memcpy(&sample, (char*)base + table[2].x_offset + table[1].y_offset, sizeof sample);
  IS(sample, 6);
  release(both);
  IS(released, 1);
}

int main(void) {
  test_bad_handles();
  test_bad_arguments();
  test_texts();
  test_last_error();
  test_images_over_memory();
  IS(TRCLiveHandleCount(), 0);
  return failures != 0;
}
