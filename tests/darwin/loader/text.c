// Stand-ins for memory, text and streams.

#define _GNU_SOURCE
#include <ctype.h>
#include <errno.h>
#include <locale.h>
#include <math.h>
#include <regex.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <strings.h>
#include <time.h>
#include <unistd.h>
#include <wchar.h>

#include "darwin.h"
#include "loader.h"
#include "standins.h"


static int* d___error(void) {
  return &t_error;
}

// The messages are Linux's: no interface depends on their wording.
static char* d_strerror(int error) {
  return strerror(LinuxError(error));
}

static void d_perror(const char* text) {
  fprintf(stderr, "%s: %s\n", text, d_strerror(t_error));
}

static int d_strerror_r(int error, char* text, size_t size) {
  const char* message = strerror(LinuxError(error));
  snprintf(text, size, "%s", message);
  return strlen(message) < size ? 0 : DarwinError(ERANGE);
}

static void* d_memset_chk(void* to, int value, size_t size, size_t room) {
  if (size > room) Die("a buffer overflow");
  return memset(to, value, size);
}

static void* d_memcpy_chk(void* to, const void* from, size_t size, size_t room) {
  if (size > room) Die("a buffer overflow");
  return memcpy(to, from, size);
}

static void* d_memmove_chk(void* to, const void* from, size_t size, size_t room) {
  if (size > room) Die("a buffer overflow");
  return memmove(to, from, size);
}

static char* d_strcpy_chk(char* to, const char* from, size_t room) {
  if (strlen(from) >= room) Die("a buffer overflow");
  return strcpy(to, from);
}

static int d_vsnprintf(char* text, size_t size, const char* format, d_va_list list) {
  va_list arguments;
  LinuxList(arguments, list);
  return vsnprintf(text, size, format, arguments);
}

static int d_vfprintf(FILE* stream, const char* format, d_va_list list) {
  va_list arguments;
  LinuxList(arguments, list);
  return vfprintf(stream, format, arguments);
}

static int d_vsnprintf_chk(char* text, size_t size, int flag, size_t room, const char* format, d_va_list list) {
  (void)flag;
  if (size > room) Die("a buffer overflow");
  return d_vsnprintf(text, size, format, list);
}

int d_snprintf_list(char* text, size_t size, const char* format, d_va_list list) {
  return d_vsnprintf(text, size, format, list);
}

int d_snprintf_chk_list(char* text, size_t size, int flag, size_t room, const char* format, d_va_list list) {
  return d_vsnprintf_chk(text, size, flag, room, format, list);
}

static int d_vprintf(const char* format, d_va_list list) {
  return d_vfprintf(stdout, format, list);
}

int d_printf_list(const char* format, d_va_list list) {
  return d_vprintf(format, list);
}

int d_sscanf_list(const char* text, const char* format, d_va_list list) {
  va_list arguments;
  LinuxList(arguments, list);
  return vsscanf(text, format, arguments);
}

int d_scanf_list(const char* format, d_va_list list) {
  va_list arguments;
  LinuxList(arguments, list);
  return vscanf(format, arguments);
}

int d_fprintf_list(FILE* stream, const char* format, d_va_list list) {
  return d_vfprintf(stream, format, list);
}

VARIADIC(int, snprintf, format, (char* text, size_t size, const char* format, ...), text, size, format)
VARIADIC(int, snprintf_chk, format, (char* text, size_t size, int flag, size_t room, const char* format, ...), text, size,
         flag, room, format)
VARIADIC(int, printf, format, (const char* format, ...), format)
VARIADIC(int, sscanf, format, (const char* text, const char* format, ...), text, format)
VARIADIC(int, scanf, format, (const char* format, ...), format)
VARIADIC(int, fprintf, format, (FILE * stream, const char* format, ...), stream, format)

// A stream that fails sets Darwin's errno too.
static size_t d_fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
  const size_t written = fwrite(bytes, size, count, stream);
  if (written != count) Checked(-1);
  return written;
}

static int d_fflush(FILE* stream) {
  return CHECKED(int, fflush(stream));
}

static int d_fputs(const char* text, FILE* stream) {
  return CHECKED(int, fputs(text, stream));
}

static int d_puts(const char* text) {
  return CHECKED(int, puts(text));
}

static void d_bzero(void* bytes, size_t size) {
  memset(bytes, 0, size);
}

// The only locale is C's, so functions that take a locale as their last argument are bound to those that take none.
static char g_c_locale;

static void* d_newlocale(void) {
  return &g_c_locale;
}

// A null locale means C's, which is what the program relies on.
static double d_strtod_l(const char* text, char** end, void* locale) {
  if (locale != NULL && locale != &g_c_locale) Die("strtod_l() is given a locale");
  return strtod(text, end);
}

int d_snprintf_l_list(char* text, size_t size, void* locale, const char* format, d_va_list list) {
  if (locale != NULL && locale != &g_c_locale) Die("snprintf_l() is given a locale");
  return d_vsnprintf(text, size, format, list);
}

VARIADIC(int, snprintf_l, format, (char* text, size_t size, void* locale, const char* format, ...), text, size, locale, format)

static int d_freelocale(void) {
  return 0;
}

static int d_mb_cur_max_l(void) {
  return 1;
}

static void d_pattern16(void* to, const void* pattern, size_t size) {
  for (size_t done = 0; done < size; done += 16) {
    memcpy((char*)to + done, pattern, size - done < 16 ? size - done : 16);
  }
}

static int d_posix_memalign(void** result, size_t alignment, size_t size) {
  return DarwinError(posix_memalign(result, alignment, size));
}

// Darwin's regex_t is smaller than Linux's, so it holds a pointer to one of those.
struct d_regex {
  int magic;
  size_t groups;
  const char* end;
  regex_t* own;
};

struct d_regmatch {
  int64_t begin, end;
};

// The tests' library wants extended expressions, without any other option.
static int d_regcomp(struct d_regex* expression, const char* text, int flags) {
  if (flags != REG_EXTENDED) Die("regcomp flags %#x have no counterpart", (unsigned)flags);
  expression->own = malloc(sizeof *expression->own);
  if (expression->own == NULL) Die("no memory for a regular expression");
  const int result = regcomp(expression->own, text, flags);
  expression->groups = expression->own->re_nsub;
  return result;
}

static int d_regexec(const struct d_regex* expression, const char* text, size_t count, struct d_regmatch* matches, int flags) {
  if (count > 1 || flags != 0) Die("regexec(%zu, %#x) has no counterpart", count, (unsigned)flags);
  regmatch_t own = {};
  const int result = regexec(expression->own, text, count, &own, 0);
  if (count > 0) *matches = (struct d_regmatch){own.rm_so, own.rm_eo};
  return result;
}

static void d_regfree(struct d_regex* expression) {
  regfree(expression->own);
  free(expression->own);
}

// The classes of characters that libc++ reads from a table. In the C locale they are those of <ctype.h>.
enum {
  kAlpha = 0x100,
  kControl = 0x200,
  kDigit = 0x400,
  kGraph = 0x800,
  kLower = 0x1000,
  kPunct = 0x2000,
  kSpace = 0x4000,
  kUpper = 0x8000,
  kHex = 0x10000,
  kBlank = 0x20000,
  kPrint = 0x40000,
};

static unsigned KindsOf(int c) {
  if (c < 0 || c > 127) return 0;
  return (isalpha(c) ? kAlpha : 0U) | (iscntrl(c) ? kControl : 0U) | (isdigit(c) ? kDigit : 0U) |
         (isgraph(c) ? kGraph : 0U) | (islower(c) ? kLower : 0U) | (ispunct(c) ? kPunct : 0U) |
         (isspace(c) ? kSpace : 0U) | (isupper(c) ? kUpper : 0U) | (isxdigit(c) ? kHex : 0U) |
         (isblank(c) ? kBlank : 0U) | (isprint(c) ? kPrint : 0U);
}

static int d_maskrune(int c, unsigned long kinds) {
  return (int)(KindsOf(c) & kinds);
}

// A _RuneLocale. Nothing reads the members before the table of classes.
static struct {
  char magic[8];
  char encoding[32];
  void* functions[2];
  int32_t invalid;
  uint32_t kinds[256];
  int32_t lower[256];
  int32_t upper[256];
} g_runes;
static_assert(offsetof(typeof(g_runes), kinds) == 60);

__attribute__((constructor)) static void FillRunes(void) {
  for (int c = 0; c < 256; ++c) {
    g_runes.kinds[c] = KindsOf(c);
    g_runes.lower[c] = c < 128 ? tolower(c) : c;
    g_runes.upper[c] = c < 128 ? toupper(c) : c;
  }
}

static uintptr_t g_stack_guard;

static _Noreturn void d_stack_chk_fail(void) {
  Die("a stack was overwritten");
}

const struct StandIn kTextStandIns[] = {
    SAME(malloc), SAME(calloc), SAME(realloc), SAME(free), SAME(aligned_alloc), OWN(posix_memalign),
    SAME(memcpy), SAME(memmove), SAME(memset), SAME(memcmp), SAME(memchr), SAME(memmem), OWN(bzero), {"___bzero", d_bzero},
    {"_memset_pattern16", d_pattern16}, {"___memset_chk", d_memset_chk}, {"___memcpy_chk", d_memcpy_chk},
    {"___memmove_chk", d_memmove_chk}, {"___strcpy_chk", d_strcpy_chk}, {"___vsnprintf_chk", d_vsnprintf_chk},
    {"___snprintf_chk", d_snprintf_chk}, {"___stack_chk_guard", &g_stack_guard}, {"___stack_chk_fail", d_stack_chk_fail},
    SAME(strlen), SAME(strcmp), SAME(strncmp), SAME(strchr), SAME(strrchr), SAME(strcasecmp), SAME(strnlen), SAME(strstr),
    SAME(strdup), OWN(snprintf), OWN(vsnprintf), OWN(strtod_l), SAME(strtod), SAME(strtof), SAME(strtol), SAME(strtoul),
    SAME(strtoll), SAME(strtoull), SAME(atoi), SAME(trunc), SAME(ceilf), SAME(nextafter), SAME(getentropy),
    {"___error", d___error}, OWN(strerror), OWN(strerror_r), OWN(perror),
    {"___stderrp", (void*)&stderr}, {"___stdoutp", (void*)&stdout}, {"___stdinp", (void*)&stdin}, OWN(puts), OWN(fprintf), OWN(vfprintf), SAME(fputc),
    OWN(fputs), OWN(fwrite), OWN(fflush),
    {"__DefaultRuneLocale", &g_runes}, {"___maskrune", d_maskrune}, {"___tolower", tolower}, {"___toupper", toupper},
    // The structure begins alike on both systems, and the program reads its beginning only.
    SAME(localeconv),
    // Functions that take a locale last are bound to those without one: the only locale here is C's.
    OWN(newlocale), {"_freelocale", d_freelocale}, OWN(snprintf_l), {"____mb_cur_max_l", d_mb_cur_max_l},
    {"___maskrune_l", d_maskrune}, {"____tolower_l", tolower}, {"____toupper_l", toupper}, {"_strcoll_l", strcoll},
    {"_strxfrm_l", strxfrm}, {"_strftime_l", strftime}, {"_localeconv_l", localeconv}, {"_btowc_l", btowc},
    {"_wctob_l", wctob}, {"_mbrtowc_l", mbrtowc}, {"_mbrlen_l", mbrlen}, {"_mbtowc_l", mbtowc}, {"_wcrtomb_l", wcrtomb},
    {"_wcscoll_l", wcscoll}, {"_wcsxfrm_l", wcsxfrm}, {"_strtoll_l", strtoll}, {"_strtoull_l", strtoull},
    SAME(wcslen), SAME(wmemchr), SAME(wmemcmp),
    // Only the unit tests call these.
    OWN(printf), OWN(vprintf), OWN(regcomp), OWN(regexec), OWN(regfree), OWN(sscanf), OWN(scanf), SAME(getchar), SAME(tmpfile), SAME(fopen), SAME(fclose), SAME(fread), SAME(fseek), SAME(ftell), SAME(fseeko), SAME(ftello), SAME(fileno), SAME(getc),
    SAME(ungetc), SAME(putchar), SAME(setbuf),
    {NULL, NULL},
};
