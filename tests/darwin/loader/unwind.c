// Exceptions. A macOS program describes most of its functions in __unwind_info, in Apple's compact form: 32 bits say where a function
// saves its registers. The others are in __eh_frame, in DWARF's form. This process's unwinder reads DWARF only, so this file writes
// out each compact entry as a DWARF record, and registers the program's own records as they are.

#include <stdlib.h>
#include <string.h>

#include "loader.h"
#include "macho.h"

extern void __register_frame(void* begin);

// libgcc's __register_frame() takes a whole section, libunwind's takes the record of one function.
static void RegisterSection(uint8_t* begin) {
#ifdef __clang__
  for (uint32_t length; memcpy(&length, begin, 4), length != 0; begin += 4 + length) {
    uint32_t commonRecord = 0;
    memcpy(&commonRecord, begin + 4, sizeof commonRecord);
    if (commonRecord != 0) __register_frame(begin);
  }
#else
  __register_frame(begin);
#endif
}

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
  if (mode == 0 || mode == kModeDwarf || end <= begin) return;
  const unsigned personality = (encoding & UNWIND_PERSONALITY_MASK) >> 28;
  const size_t record = BeginRecord();
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

static void RegisterCompactInfo(const uint8_t* bytes) {
  struct Section section = {.bytes = bytes, .header = (const void*)bytes};
  WriteOut(&section);
  PutWord(0);  // the end
  RegisterSection(g_out.bytes);
}

// The unwinder wants a zero after the last record. The section is its segment's last, so zeros fill the page behind it.
static void RegisterOwnFrames(uint8_t* bytes, uint64_t size) {
  uint32_t after = 0;
  memcpy(&after, bytes + size, sizeof after);
  if (after != 0) Die("the unwind information does not end where its section does");
  RegisterSection(bytes);
}

void RegisterUnwindInfo(void) {
  uint64_t size = 0;
  const uint8_t* compact = FindSection("__unwind_info", &size);
  if (size > 0) RegisterCompactInfo(compact);
  uint8_t* frames = FindSection("__eh_frame", &size);
  if (size > 0) RegisterOwnFrames(frames, size);
}
