// Reads the embedded Mach-O file and puts its segments into memory, as macOS's kernel does.

#define _GNU_SOURCE
#include <stddef.h>
#include <string.h>
#include <sys/mman.h>

#include "loader.h"

// The file, from embed.S.
extern const uint8_t g_file[];
extern const uint8_t g_file_end[];

struct Image g_image;

void* Allocate(uint64_t size, int protection) {
  void* memory = MAP_FAILED;
  for (int attempt = 0; attempt < 2 && memory == MAP_FAILED; ++attempt) {
    memory = mmap(NULL, size, protection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  }
  if (memory == MAP_FAILED) Die("there is no memory for the program");
  return memory;
}

static uint32_t BigEndian(uint32_t value) {
  return __builtin_bswap32(value);
}

static void SelectPart(const struct fat_header* universal) {
  const struct fat_arch* parts = (const void*)(universal + 1);
  const uint32_t count = BigEndian(universal->nfat_arch);
  uint32_t i = 0;
  while (i < count && BigEndian(parts[i].cputype) != CPU_TYPE_OWN) ++i;
  if (i == count) Die("the file has nothing for this processor");
  g_image.file += BigEndian(parts[i].offset);
  g_image.fileSize = BigEndian(parts[i].size);
}

static void ReadLoadCommand(const struct load_command* command) {
  switch (command->cmd) {
    case LC_SEGMENT_64:
      if (g_image.segmentCount == kMaximumSegments) Die("the file has too many segments");
      g_image.segments[g_image.segmentCount++] = (const void*)command;
      break;
    case LC_DYLD_INFO_ONLY: g_image.fixups = (const void*)command; break;
    case LC_MAIN: g_image.entry = (const void*)command; break;
    case LC_DYLD_CHAINED_FIXUPS: Die("the file has chained fixups, which this loader does not know");
  }
}

void ReadImage(void) {
  g_image.file = g_file;
  g_image.fileSize = (uint64_t)(g_file_end - g_file);
  const struct fat_header* universal = (const void*)g_file;
  if (universal->magic == FAT_MAGIC_SWAPPED) SelectPart(universal);
  const struct mach_header_64* header = (const void*)g_image.file;
  if (header->magic != MH_MAGIC_64 || header->cputype != CPU_TYPE_OWN || header->filetype != MH_EXECUTE) {
    Die("the file is not a program for this processor");
  }
  const uint8_t* place = (const uint8_t*)(header + 1);
  for (uint32_t i = 0; i < header->ncmds; ++i) {
    const struct load_command* command = (const void*)place;
    ReadLoadCommand(command);
    place += command->cmdsize;
  }
  if (g_image.fixups == NULL || g_image.entry == NULL) Die("the file lacks LC_DYLD_INFO_ONLY or LC_MAIN");
}

// __PAGEZERO has no protection at all and needs no memory: the lowest page of a Linux process is as inaccessible.
static bool IsMapped(const struct segment_command_64* segment) {
  return segment->initprot != 0;
}

// Reserves one range for all segments at an address that Linux chooses, as the kernel randomises it.
static void ReserveRange(void) {
  uint64_t low = UINT64_MAX;
  uint64_t high = 0;
  for (unsigned i = 0; i < g_image.segmentCount; ++i) {
    const struct segment_command_64* segment = g_image.segments[i];
    if (!IsMapped(segment)) continue;
    if (segment->vmaddr < low) low = segment->vmaddr;
    if (segment->vmaddr + segment->vmsize > high) high = segment->vmaddr + segment->vmsize;
  }
  g_image.size = high - low;
  g_image.base = Allocate(g_image.size, PROT_READ | PROT_WRITE);
  g_image.slide = (uint64_t)g_image.base - low;
}

void MapImage(void) {
  ReserveRange();
  for (unsigned i = 0; i < g_image.segmentCount; ++i) {
    const struct segment_command_64* segment = g_image.segments[i];
    if (segment->fileoff + segment->filesize > g_image.fileSize) Die("segment %.16s is cut off", segment->segname);
    if (!IsMapped(segment)) continue;
    uint8_t* const place = (uint8_t*)(segment->vmaddr + g_image.slide);
    memcpy(place, g_image.file + segment->fileoff, segment->filesize);
    __builtin___clear_cache((char*)place, (char*)place + segment->filesize);
  }
}

void ProtectImage(void) {
  enum { kReadOnlyAfterFixups = 0x10 };
  for (unsigned i = 0; i < g_image.segmentCount; ++i) {
    const struct segment_command_64* segment = g_image.segments[i];
    if (!IsMapped(segment) || segment->vmsize == 0) continue;
    int protection = (int)segment->initprot & 7;  // the bits are those of PROT_
    if (segment->flags & kReadOnlyAfterFixups) protection = PROT_READ;
    if (mprotect((void*)(segment->vmaddr + g_image.slide), segment->vmsize, protection) != 0) {
      Die("segment %.16s cannot be protected", segment->segname);
    }
  }
}

typedef bool Matches(const struct section_64* section, const void* wanted);

static const struct section_64* NextSection(const struct section_64* after, Matches* matches, const void* wanted) {
  bool isBehind = after == NULL;
  for (unsigned i = 0; i < g_image.segmentCount; ++i) {
    const struct section_64* sections = (const void*)(g_image.segments[i] + 1);
    for (uint32_t k = 0; k < g_image.segments[i]->nsects; ++k) {
      if (isBehind && matches(&sections[k], wanted)) return &sections[k];
      if (&sections[k] == after) isBehind = true;
    }
  }
  return NULL;
}

static bool HasType(const struct section_64* section, const void* wanted) {
  return (section->flags & 0xff) == *(const uint32_t*)wanted;
}

static bool HasName(const struct section_64* section, const void* wanted) {
  return strncmp(section->sectname, wanted, sizeof section->sectname) == 0;
}

void ForEachSection(uint32_t type, void (*visit)(uint8_t* address, uint64_t size)) {
  for (const struct section_64* section = NextSection(NULL, HasType, &type); section != NULL;
       section = NextSection(section, HasType, &type)) {
    visit((uint8_t*)(section->addr + g_image.slide), section->size);
  }
}

uint8_t* FindSection(const char* name, uint64_t* size) {
  const struct section_64* section = NextSection(NULL, HasName, name);
  *size = section != NULL ? section->size : 0;
  return section != NULL ? (uint8_t*)(section->addr + g_image.slide) : NULL;
}
