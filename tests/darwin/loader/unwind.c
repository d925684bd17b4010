// Exceptions. A macOS program describes most of its functions in __unwind_info, in Apple's compact form: 32 bits say where a function
// saves its registers. The others are in __eh_frame, in DWARF's form. This process's unwinder reads DWARF only, so this file writes
// out each compact entry as a DWARF record, and finds the program's own records by the entries that name them.

#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include "loader.h"
#include "macho.h"

enum {  // DWARF's numbers of registers and operations
#ifdef __x86_64__
  RBX = 3,
  RBP = 6,
  RSP = 7,
  R12 = 12,
  R13 = 13,
  R14 = 14,
  R15 = 15,
  RETURN_ADDRESS = 16,
#else
  X19 = 19,
  FP = 29,
  RETURN_ADDRESS = 30,
  SP = 31,
  D8 = 72,
#endif
  DW_CFA_def_cfa = 0x0c,
  DW_CFA_offset_extended = 0x05,
};

static struct {
  uint8_t* bytes;
  size_t size;
  size_t room;
} g_out;

// A function of the program's, and the record that describes it.
struct Function {
  uint32_t begin, end;  // offsets from the beginning of the image
  const uint8_t* own;   // the record, if it is the program's own; otherwise it is at this place in g_out:
  size_t place;
};
static struct Function* g_functions;
static size_t g_function_count;
static size_t g_function_room;

static void NoteFunction(struct Function function) {
  if (g_function_count == g_function_room) {
    g_function_room = g_function_room * 2 + 256;
    g_functions = realloc(g_functions, g_function_room * sizeof *g_functions);
    if (g_functions == NULL) Die("no memory for the unwind information");
  }
  g_functions[g_function_count++] = function;
}

static void Put(const void* bytes, size_t size) {
  if (g_out.size + size > g_out.room) {
    g_out.room = (g_out.room + size) * 2;
    g_out.bytes = realloc(g_out.bytes, g_out.room);
    if (g_out.bytes == NULL) Die("no memory for the unwind information");
  }
  memcpy(g_out.bytes + g_out.size, bytes, size);
  g_out.size += size;
}

static void PutByte(unsigned value) {
  const uint8_t byte = (uint8_t)value;
  Put(&byte, 1);
}

static void PutWord(uint32_t value) {
  Put(&value, sizeof value);
}

static void PutAddress(uint64_t value) {
  Put(&value, sizeof value);
}

static void PutUleb(uint64_t value) {
  while (value >= 0x80) {
    PutByte((unsigned)(value & 0x7f) | 0x80);
    value >>= 7;
  }
  PutByte((unsigned)value);
}

// Reserves the four bytes before a record that EndRecord() sets to its length. Returns the place of the record.
static size_t BeginRecord(void) {
  PutWord(0);
  return g_out.size;
}

// Pads the record with no-operations to a multiple of 8 bytes, counted with its length.
static void EndRecord(size_t begin) {
  while ((g_out.size - begin) % 8 != 4) PutByte(0);
  const uint32_t length = (uint32_t)(g_out.size - begin);
  memcpy(g_out.bytes + begin - 4, &length, sizeof length);
}

// Writes the record that functions with this personality routine share; 0 is none. Returns its place.
static size_t PutCommonRecord(uint64_t personality) {
  const size_t place = g_out.size;
  const size_t begin = BeginRecord();
  PutWord(0);
  PutByte(1);  // version
  Put(personality != 0 ? "zPLR" : "zR", personality != 0 ? 5 : 3);
  PutUleb(1);     // code alignment
  PutByte(0x78);  // data alignment: -8
  PutUleb(RETURN_ADDRESS);
  PutUleb(personality != 0 ? 11 : 1);
  if (personality != 0) {
    PutByte(0);  // absolute addresses, here and below
    PutAddress(personality);
    PutByte(0);
  }
  PutByte(0);
  EndRecord(begin);
  return place;
}

// Writes the rule that register `r` is saved at the canonical frame address minus 8 * slots.
static void PutSaved(unsigned r, uint64_t slots) {
  PutByte(DW_CFA_offset_extended);
  PutUleb(r);
  PutUleb(slots);
}

#ifdef __x86_64__

enum { kModeDwarf = UNWIND_X86_64_MODE_DWARF };

static const uint8_t kRegisters[7] = {0, RBX, R12, R13, R14, R15, RBP};

static void PutFrame(uint32_t encoding) {
  PutByte(DW_CFA_def_cfa);
  PutUleb(RBP);
  PutUleb(16);
  PutSaved(RETURN_ADDRESS, 1);
  PutSaved(RBP, 2);
  const uint64_t offset = encoding >> 16 & 0xff;
  for (unsigned i = 0; i < 5; ++i) {
    const unsigned r = encoding >> (3 * i) & 7;
    if (r != 0) PutSaved(kRegisters[r], 2 + offset - i);
  }
}

// The ten lowest bits say which of six registers are saved in which order. Each digit of that number, in a mixed radix, is an
// index into the registers that the digits before it have left.
static void PutFrameless(uint32_t encoding, const uint8_t* function) {
  uint64_t size = (encoding >> 16 & 0xff) * 8;
  if ((encoding & UNWIND_MODE_MASK) == UNWIND_X86_64_MODE_STACK_IND) {
    uint32_t subtracted = 0;
    memcpy(&subtracted, function + (encoding >> 16 & 0xff), sizeof subtracted);
    size = subtracted + 8 * (encoding >> 13 & 7);
  }
  const unsigned count = encoding >> 10 & 7;
  unsigned permutation = encoding & 0x3ff;
  unsigned digits[6] = {};
  static const unsigned kWeights[7][6] = {
      {}, {1}, {5, 1}, {20, 4, 1}, {60, 12, 3, 1}, {120, 24, 6, 2, 1}, {120, 24, 6, 2, 1, 0}};
  for (unsigned i = 0; i < count; ++i) {
    const unsigned w = kWeights[count][i];
    digits[i] = w != 0 ? permutation / w : 0;
    permutation -= digits[i] * w;
  }
  PutByte(DW_CFA_def_cfa);
  PutUleb(RSP);
  PutUleb(size);
  PutSaved(RETURN_ADDRESS, 1);
  unsigned used = 0;
  for (unsigned i = 0; i < count; ++i) {
    unsigned r = 1;
    for (unsigned left = digits[i]; used >> r & 1 || left > 0; ++r) left -= used >> r & 1 ? 0 : 1;
    if (r > 6) Die("compact unwind information with an impossible order of registers");
    used |= 1U << r;
    PutSaved(kRegisters[r], 1 + count - i);
  }
}

static void PutRules(uint32_t encoding, const uint8_t* function) {
  if ((encoding & UNWIND_MODE_MASK) == UNWIND_X86_64_MODE_RBP_FRAME) {
    PutFrame(encoding);
  } else {
    PutFrameless(encoding, function);
  }
}

#else

enum { kModeDwarf = UNWIND_ARM64_MODE_DWARF };

// Each bit stands for a pair of registers. They are saved in order below the frame pointer and the return address, or at the top
// of a frame that saves neither.
static void PutRules(uint32_t encoding, const uint8_t* function) {
  (void)function;
  const bool hasFrame = (encoding & UNWIND_MODE_MASK) == UNWIND_ARM64_MODE_FRAME;
  PutByte(DW_CFA_def_cfa);
  PutUleb(hasFrame ? FP : SP);
  PutUleb(hasFrame ? 16 : (encoding >> 12 & 0xfff) * 16);
  unsigned slot = 1;
  if (hasFrame) {
    PutSaved(RETURN_ADDRESS, slot++);
    PutSaved(FP, slot++);
  }
  for (unsigned pair = 0; pair < 9; ++pair) {
    const bool isVector = pair >= 5;
    const unsigned bit = isVector ? 8 + (pair - 5) : pair;
    if (!(encoding >> bit & 1)) continue;
    const unsigned first = isVector ? D8 + 2 * (pair - 5) : X19 + 2 * pair;
    PutSaved(first, slot++);
    PutSaved(first + 1, slot++);
  }
}

#endif

struct Section {
  const uint8_t* bytes;
  const struct unwind_info_section_header* header;
  const uint8_t* frames;    // the section __eh_frame, null if there is none
  size_t commonRecords[4];  // indexed by the number of the personality routine; 0 is none
};

static uint64_t LsdaOf(const struct Section* section, uint32_t page, uint32_t functionOffset) {
  const struct unwind_info_section_header_index_entry* index =
      (const void*)(section->bytes + section->header->indexSectionOffset);
  const struct unwind_info_lsda_index_entry* entry =
      (const void*)(section->bytes + index[page].lsdaIndexArraySectionOffset);
  const struct unwind_info_lsda_index_entry* end =
      (const void*)(section->bytes + index[page + 1].lsdaIndexArraySectionOffset);
  for (; entry < end; ++entry) {
    if (entry->functionOffset == functionOffset) return (uint64_t)(g_image.base + entry->lsdaOffset);
  }
  Die("a function at %#x lacks its table of handlers", functionOffset);
}

static void PutFunction(const struct Section* section, uint32_t page, uint32_t begin, uint32_t end, uint32_t encoding) {
  const uint32_t mode = encoding & UNWIND_MODE_MASK;
  if (mode == 0 || end <= begin) return;
  if (mode == kModeDwarf) {
    NoteFunction((struct Function){.begin = begin, .end = end, .own = section->frames + (encoding & UNWIND_DWARF_SECTION_OFFSET)});
    return;
  }
  const unsigned personality = (encoding & UNWIND_PERSONALITY_MASK) >> 28;
  const size_t record = BeginRecord();
  NoteFunction((struct Function){.begin = begin, .end = end, .place = record - sizeof(uint32_t)});
  PutWord((uint32_t)(record - section->commonRecords[personality]));
  PutAddress((uint64_t)(g_image.base + begin));
  PutAddress(end - begin);
  PutUleb(personality != 0 ? 8 : 0);
  if (personality != 0) PutAddress(encoding & UNWIND_HAS_LSDA ? LsdaOf(section, page, begin) : 0);
  PutRules(encoding, g_image.base + begin);
  EndRecord(record);
}

static void PutRegularPage(const struct Section* section, uint32_t number, const uint8_t* bytes, uint32_t end) {
  const struct unwind_info_regular_page* page = (const void*)bytes;
  const uint32_t* entries = (const void*)(bytes + page->entryPageOffset);
  for (uint32_t i = 0; i < page->entryCount; ++i) {
    const uint32_t next = i + 1 < page->entryCount ? entries[2 * (i + 1)] : end;
    PutFunction(section, number, entries[2 * i], next, entries[2 * i + 1]);
  }
}

static void PutCompressedPage(const struct Section* section, uint32_t number, const uint8_t* bytes, uint32_t base,
                              uint32_t end) {
  const struct unwind_info_compressed_page* page = (const void*)bytes;
  const uint32_t* entries = (const void*)(bytes + page->entryPageOffset);
  const uint32_t* own = (const void*)(bytes + page->encodingsPageOffset);
  const uint32_t* common = (const void*)(section->bytes + section->header->commonEncodingsArraySectionOffset);
  const uint32_t commonCount = section->header->commonEncodingsArrayCount;
  for (uint32_t i = 0; i < page->entryCount; ++i) {
    const uint32_t begin = base + (entries[i] & 0xffffff);
    const uint32_t next = i + 1 < page->entryCount ? base + (entries[i + 1] & 0xffffff) : end;
    const uint32_t which = entries[i] >> 24;
    PutFunction(section, number, begin, next, which < commonCount ? common[which] : own[which - commonCount]);
  }
}

static void WriteOut(struct Section* section) {
  const struct unwind_info_section_header* header = section->header;
  if (header->version != 1 || header->personalityArrayCount > 3) Die("compact unwind information of an unknown form");
  const uint32_t* personalities = (const void*)(section->bytes + header->personalityArraySectionOffset);
  section->commonRecords[0] = PutCommonRecord(0);
  for (uint32_t i = 0; i < header->personalityArrayCount; ++i) {
    uint64_t personality = 0;  // the section names the place that holds the routine's address
    memcpy(&personality, g_image.base + personalities[i], sizeof personality);
    section->commonRecords[i + 1] = PutCommonRecord(personality);
  }
  const struct unwind_info_section_header_index_entry* index = (const void*)(section->bytes + header->indexSectionOffset);
  for (uint32_t i = 0; i + 1 < header->indexCount; ++i) {
    const uint8_t* page = section->bytes + index[i].secondLevelPagesSectionOffset;
    if (*(const uint32_t*)page == UNWIND_SECOND_LEVEL_REGULAR) {
      PutRegularPage(section, i, page, index[i + 1].functionOffset);
    } else if (*(const uint32_t*)page == UNWIND_SECOND_LEVEL_COMPRESSED) {
      PutCompressedPage(section, i, page, index[i].functionOffset, index[i + 1].functionOffset);
    } else {
      Die("a page of compact unwind information of an unknown form");
    }
  }
}

// Called once, by the first exception that crosses a frame of the program's: most runs of it throw none.
static void DescribeFunctions(void) {
  uint64_t size = 0;
  const uint8_t* compact = FindSection("__unwind_info", &size);
  if (compact == NULL) return;
  struct Section section = {.bytes = compact, .header = (const void*)compact, .frames = FindSection("__eh_frame", &size)};
  WriteOut(&section);
}

// Returns the function that contains this offset; null if none does. They are sorted by their beginnings.
static const struct Function* FindFunction(uint64_t offset) {
  size_t low = 0;
  size_t high = g_function_count;
  while (low < high) {
    const size_t middle = low + (high - low) / 2;
    if (g_functions[middle].end <= offset) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low < g_function_count && g_functions[low].begin <= offset ? &g_functions[low] : NULL;
}

// libgcc's: what the unwinder learns of a function besides its record.
struct dwarf_eh_bases {
  void *text, *data, *function;
};
const void* __real__Unwind_Find_FDE(void* pc, struct dwarf_eh_bases* bases);
const void* __wrap__Unwind_Find_FDE(void* pc, struct dwarf_eh_bases* bases);

// The linker has libgcc's unwinder call this in place of its own search (--wrap). The unwinder has a way to register records, too, but its
// search assumes that two registered sections never interleave, and the program's two do.
const void* __wrap__Unwind_Find_FDE(void* pc, struct dwarf_eh_bases* bases) {
  static pthread_once_t once = PTHREAD_ONCE_INIT;
  const uint64_t offset = (uint64_t)pc - (uint64_t)g_image.base;
  if (offset >= g_image.size) return __real__Unwind_Find_FDE(pc, bases);
  pthread_once(&once, DescribeFunctions);
  const struct Function* function = FindFunction(offset);
  if (function == NULL) return NULL;
  *bases = (struct dwarf_eh_bases){.function = g_image.base + function->begin};
  return function->own != NULL ? function->own : g_out.bytes + function->place;
}
