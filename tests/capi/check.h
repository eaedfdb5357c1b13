/// Checks for test programs in C: a failed one is printed and counted, and the program goes on.
#ifndef TARN_TESTS_CAPI_CHECK_H
#define TARN_TESTS_CAPI_CHECK_H

#include <inttypes.h>
#include <stdio.h>

static int check_failures;

static inline int check_true(int holds, const char* what, const char* file, int line) {
  if (!holds) {
    ++check_failures;
    printf("%s:%d: %s\n", file, line, what);
  }
  return holds;
}

static inline void check_equal(int64_t got, int64_t wanted, const char* what, const char* file, int line) {
  if (got == wanted) return;
  ++check_failures;
  printf("%s:%d: %s is %" PRId64 " (0x%08" PRIX32 "), not %" PRId64 " (0x%08" PRIX32 ")\n", file, line, what,
         got, (uint32_t)got, wanted, (uint32_t)wanted);
}

/// Yields whether the condition held, for what can't go on without it.
#define CHECK(condition) check_true((condition) ? 1 : 0, #condition, __FILE__, __LINE__)
#define CHECK_EQUAL(got, wanted) check_equal((int64_t)(got), (int64_t)(wanted), #got, __FILE__, __LINE__)
/// As CHECK_EQUAL, in a table: `name` tells the row.
#define CHECK_ROW(name, got, wanted) check_equal((int64_t)(got), (int64_t)(wanted), name, __FILE__, __LINE__)

#endif
