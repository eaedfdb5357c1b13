// Handles, last error, format names and images, as a C program meets them.

// POSIX threads, since the thread sanitizer does not know those of C11.
#include <pthread.h>
#include <string.h>
#include <wchar.h>

#include "gevserver/library/tr_core.h"
#include "gevserver/library/tr_img.h"
#include "gevserver/library/tr_status.h"
#include "gevserver/library/tr_utilities.h"
#include "tests/capi/check.h"

static int destroyed;

static void count_destroyed(void* object) {
  (void)object;
  ++destroyed;
}

static int object_of_ours;
enum { kOurKind = 1 };

/// A live handle of a kind that no library knows.
static TR_HANDLE foreign_handle(void) { return TRCCreateHandle(&object_of_ours, kOurKind, count_destroyed); }

static TR_HANDLE stale_handle(void) {
  TR_HANDLE handle = foreign_handle();
  TR_HANDLE copy = handle;
  CHECK_EQUAL(ReleaseObject(&handle), TR_OK);
  return copy;
}

static void test_references(void) {
  const uint64_t before = TRCLiveHandleCount();
  destroyed = 0;
  TR_HANDLE first = foreign_handle();
  TR_HANDLE second = first;
  CHECK_EQUAL(TRCLiveHandleCount(), before + 1);
  CHECK_EQUAL(ShareObject(first), TR_OK);
  CHECK(TRCPinHandle(first, kOurKind) == &object_of_ours);
  CHECK(TRCPinHandle(first, kOurKind + 1) == NULL);
  CHECK_EQUAL(ReleaseObject(&first), TR_OK);
  CHECK(first == NULL);
  first = second;
  CHECK_EQUAL(ReleaseObject(&first), TR_OK);
  CHECK_EQUAL(destroyed, 0);
  first = second;
  CHECK_EQUAL(ReleaseObject(&first), TR_OK);
  CHECK_EQUAL(destroyed, 1);
  CHECK_EQUAL(ReleaseObject(&second), TR_E_INVALID_HANDLE);
  CHECK(second != NULL);  // a failure leaves its output alone
  CHECK_EQUAL(TRCLiveHandleCount(), before);

  CHECK(TRCCreateHandle(NULL, kOurKind, count_destroyed) == NULL);
  CHECK(TRCCreateHandle(&object_of_ours, 0, count_destroyed) == NULL);
  CHECK(TRCCreateHandle(&object_of_ours, kOurKind, NULL) == NULL);
}

static void test_bad_handles(void) {
  int local = 0;
  TR_HANDLE foreign = foreign_handle();
  const TR_HANDLE bad[] = {NULL, stale_handle(), &local, (TR_HANDLE)(intptr_t)-1, foreign};
  for (size_t i = 0; i < sizeof bad / sizeof bad[0]; ++i) {
    void* base = &local;
    ptrdiff_t step = 7;
    const TRVpaEntry* table = NULL;
    TR_HANDLE made = &local;
    CHECK_EQUAL(ImageWidth(bad[i]), 0);
    CHECK_EQUAL(ImageHeight(bad[i]), 0);
    CHECK_EQUAL(ImageDimension(bad[i]), 0);
    CHECK_EQUAL(ImageDatatype(bad[i], 0), 0);
    CHECK(!GetLinearAccess(bad[i], 0, &base, &step, &step));
    CHECK_EQUAL(GetImageVPA(bad[i], 0, &base, &table), TR_E_INVALID_HANDLE);
    CHECK_EQUAL(CreateConcatenatedImage(&bad[i], 1, &made), TR_E_INVALID_HANDLE);
    CHECK(base == &local && step == 7 && table == NULL && made == &local);
    if (bad[i] == foreign) continue;
    TR_HANDLE variable = bad[i];
    CHECK_EQUAL(ShareObject(bad[i]), TR_E_INVALID_HANDLE);
    CHECK_EQUAL(ReleaseObject(&variable), TR_E_INVALID_HANDLE);
    CHECK(variable == bad[i]);
  }
  CHECK_EQUAL(ReleaseObject(NULL), TR_E_INVALID_HANDLE);
  CHECK_EQUAL(ReleaseObject(&foreign), TR_OK);
}

static void* fresh_thread_has_no_error(void* unused) {
  (void)unused;
  TR_STATUS code = -1;
  wchar_t text[4] = L"old";
  size_t size = 4;
  CHECK_EQUAL(TRCGetLastErrorW(&code, text, &size), TR_OK);
  CHECK_EQUAL(code, TR_OK);
  CHECK_EQUAL(size, 1);
  CHECK(text[0] == 0);
  TRCSetLastError(TR_E_FAILED, "of this thread");
  return NULL;
}

static void test_last_error(void) {
  CHECK_EQUAL(ShareObject(NULL), TR_E_INVALID_HANDLE);
  CHECK(strcmp(TRCLastErrorText(), "the handle is null") == 0);

  pthread_t other;
  CHECK(pthread_create(&other, NULL, fresh_thread_has_no_error, NULL) == 0);
  pthread_join(other, NULL);

  size_t size = 0;
  TR_STATUS code = 0;
  CHECK_EQUAL(TRCGetLastErrorW(&code, NULL, &size), TR_OK);
  CHECK_EQUAL(size, wcslen(L"the handle is null") + 1);
  CHECK_EQUAL(code, TR_E_INVALID_HANDLE);

  // What can't be fetched must not replace what is to be fetched.
  wchar_t text[64] = L"untouched";
  size = 5;
  CHECK_EQUAL(TRCGetLastErrorW(&code, text, &size), TR_E_BUFFER_TOO_SMALL);
  CHECK_EQUAL(TRCGetLastErrorW(&code, text, NULL), TR_E_INVALID_ARGUMENT);
  CHECK(wcscmp(text, L"untouched") == 0 && size == 5);
  size = 19;
  CHECK_EQUAL(TRCGetLastErrorW(&code, text, &size), TR_OK);
  CHECK(wcscmp(text, L"the handle is null") == 0);

  // Characters of one to four bytes, then bytes that are none: a stray one, an overlong form, a half
  // character.
  TRCSetLastError(TR_E_FAILED, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xFF\xC0\x80\xE2\x82");
  size = 64;
  CHECK_EQUAL(TRCGetLastErrorW(NULL, text, &size), TR_OK);
  CHECK(wcscmp(text, L"a\u00e9\u20ac\U0001F600\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD") == 0);

  // A long text is cut between characters.
  char endless[4000];
  for (size_t i = 0; i + 1 < sizeof endless; ++i) endless[i] = i % 2 == 0 ? '\xC3' : '\xA9';
  endless[sizeof endless - 1] = 0;
  TRCSetLastError(TR_E_FAILED, endless);
  const size_t kept = strlen(TRCLastErrorText());
  CHECK(kept > 500 && kept % 2 == 0);
  TRCSetLastError(TR_E_FAILED, TRCLastErrorText());
  CHECK_EQUAL(strlen(TRCLastErrorText()), kept);
  TRCSetLastError(TR_E_FAILED, NULL);
  CHECK_EQUAL(strlen(TRCLastErrorText()), 0);
}

static void test_format_names(void) {
  size_t size = 0;
  char name[8] = "before";
  CHECK_EQUAL(TRCGetPFNCValueName(0x01080001, NULL, &size), TR_OK);
  CHECK_EQUAL(size, 6);
  size = 5;
  CHECK_EQUAL(TRCGetPFNCValueName(0x01080001, name, &size), TR_E_BUFFER_TOO_SMALL);
  CHECK_EQUAL(TRCGetPFNCValueName(0x01080001, name, NULL), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(TRCGetPFNCValueName(0, name, &size), TR_E_NOT_FOUND);
  CHECK(strcmp(name, "before") == 0 && size == 5);
  size = sizeof name;
  CHECK_EQUAL(TRCGetPFNCValueName(0x01080001, name, &size), TR_OK);
  CHECK(strcmp(name, "Mono8") == 0 && size == 6);
}

static int released;

static void count_released(void* context) { released += *(const int*)context; }

static void test_caller_memory(void) {
  const uint64_t before = TRCLiveHandleCount();
  uint16_t pixels[2][3] = {{1, 2, 3}, {4, 5, 6}};
  const TRPlaneLayout layout = {pixels, sizeof(uint16_t), sizeof pixels[0]};
  const int one = 1;
  TR_HANDLE wrapped = NULL;
  released = 0;
  CHECK_EQUAL(CreateImageFromPointer(3, 0, 1, 16, &layout, count_released, (void*)&one, &wrapped),
              TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(CreateImageFromPointer(3, 2, INT64_MAX, 16, &layout, count_released, (void*)&one, &wrapped),
              TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(CreateImageFromPointer(3, 2, 1, 16, NULL, count_released, (void*)&one, &wrapped),
              TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(CreateImageFromPointer(3, 2, 1, 16, &layout, count_released, (void*)&one, NULL),
              TR_E_INVALID_ARGUMENT);
  CHECK(wrapped == NULL && released == 0);
  CHECK_EQUAL(CreateImageFromPointer(3, 2, 1, 16, &layout, count_released, (void*)&one, &wrapped), TR_OK);

  // The concatenation outlives the handles that it was made of, and keeps their memory.
  TR_HANDLE owned = NULL;
  CHECK_EQUAL(CreateImage(3, 2, 2, 8, &owned), TR_OK);
  const TR_HANDLE parts[] = {wrapped, owned};
  TR_HANDLE both = NULL;
  CHECK_EQUAL(CreateConcatenatedImage(parts, 2, &both), TR_OK);
  CHECK_EQUAL(CreateConcatenatedImage(parts, 0, &both), TR_E_INVALID_ARGUMENT);
  CHECK_EQUAL(ReleaseObject(&wrapped), TR_OK);
  CHECK_EQUAL(ReleaseObject(&owned), TR_OK);
  CHECK_EQUAL(released, 0);
  CHECK_EQUAL(ImageDimension(both), 3);
  CHECK_EQUAL(ImageDatatype(both, 0), 16);
  CHECK_EQUAL(ImageDatatype(both, 2), 8);

  const TRVpaEntry* table = NULL;
  void* base = NULL;
  CHECK_EQUAL(GetImageVPA(both, 0, &base, &table), TR_OK);
  if (CHECK(base == pixels && table != NULL)) {
    uint16_t sample = 0;
    memcpy(&sample, (const char*)base + table[2].x_offset + table[1].y_offset, sizeof sample);
    CHECK_EQUAL(sample, 6);
  }
  CHECK_EQUAL(GetImageVPA(both, 3, &base, &table), TR_E_OUT_OF_RANGE);
  CHECK_EQUAL(GetImageVPA(both, 0, NULL, &table), TR_E_INVALID_ARGUMENT);

  CHECK_EQUAL(ReleaseObject(&both), TR_OK);
  CHECK_EQUAL(released, 1);
  CHECK_EQUAL(TRCLiveHandleCount(), before);
}

static void test_concatenation_of_unequal_sizes(void) {
  TR_HANDLE parts[2] = {NULL, NULL};
  TR_HANDLE both = NULL;
  CHECK_EQUAL(CreateImage(3, 2, 1, 8, &parts[0]), TR_OK);
  CHECK_EQUAL(CreateImage(2, 3, 1, 8, &parts[1]), TR_OK);
  CHECK_EQUAL(CreateConcatenatedImage(parts, 2, &both), TR_E_INVALID_ARGUMENT);
  CHECK(both == NULL);
  CHECK(strcmp(TRCLastErrorText(), "image 1 measures 2 x 3 pixels, the first 3 x 2") == 0);
  CHECK_EQUAL(ReleaseObject(&parts[0]), TR_OK);
  CHECK_EQUAL(ReleaseObject(&parts[1]), TR_OK);
}

int main(void) {
  const uint64_t before = TRCLiveHandleCount();
  test_references();
  test_bad_handles();
  test_last_error();
  test_format_names();
  test_caller_memory();
  test_concatenation_of_unequal_sizes();
  CHECK_EQUAL(TRCLiveHandleCount(), before);
  return check_failures != 0;
}
