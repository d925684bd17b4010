// What the loader needs to know of Mach-O files, as <mach-o/loader.h> and <mach-o/compact_unwind_encoding.h>
// have it.
#pragma once

#include <stdint.h>

enum {
  MH_MAGIC_64 = 0xfeedfacf,
  FAT_MAGIC_SWAPPED = 0xbebafeca,  // a universal file's first word, read in our byte order
#ifdef __x86_64__
  CPU_TYPE_OWN = 0x01000007,
#else
  CPU_TYPE_OWN = 0x0100000c,  // arm64
#endif
  MH_EXECUTE = 2,
};

enum {
  LC_SEGMENT_64 = 0x19,
  LC_DYLD_INFO_ONLY = 0x80000022,
  LC_MAIN = 0x80000028,
  LC_DYLD_CHAINED_FIXUPS = 0x80000034,
};

struct mach_header_64 {
  uint32_t magic, cputype, cpusubtype, filetype, ncmds, sizeofcmds, flags, reserved;
};

struct fat_header {  // all in big-endian order, as the entries
  uint32_t magic, nfat_arch;
};

struct fat_arch {
  uint32_t cputype, cpusubtype, offset, size, align;
};

struct load_command {
  uint32_t cmd, cmdsize;
};

struct segment_command_64 {
  uint32_t cmd, cmdsize;
  char segname[16];
  uint64_t vmaddr, vmsize, fileoff, filesize;
  uint32_t maxprot, initprot, nsects, flags;
};

struct section_64 {
  char sectname[16], segname[16];
  uint64_t addr, size;
  uint32_t offset, align, reloff, nreloc, flags, reserved1, reserved2, reserved3;
};

enum {  // section_64.flags & 0xff
  S_MOD_INIT_FUNC_POINTERS = 0x9,
  S_THREAD_LOCAL_REGULAR = 0x11,
  S_THREAD_LOCAL_ZEROFILL = 0x12,
  S_THREAD_LOCAL_VARIABLES = 0x13,
  S_INIT_FUNC_OFFSETS = 0x16,
};

struct dyld_info_command {
  uint32_t cmd, cmdsize, rebase_off, rebase_size, bind_off, bind_size, weak_bind_off, weak_bind_size,
      lazy_bind_off, lazy_bind_size, export_off, export_size;
};

struct entry_point_command {
  uint32_t cmd, cmdsize;
  uint64_t entryoff, stacksize;
};

struct tlv_descriptor {
  void* thunk;
  uint64_t key;
  uint64_t offset;
};

// The operations of rebasing and binding: the upper four bits; the lower four are an operand.
enum {
  REBASE_DONE = 0x00,
  REBASE_SET_TYPE_IMM = 0x10,
  REBASE_SET_SEGMENT_AND_OFFSET_ULEB = 0x20,
  REBASE_ADD_ADDR_ULEB = 0x30,
  REBASE_ADD_ADDR_IMM_SCALED = 0x40,
  REBASE_DO_REBASE_IMM_TIMES = 0x50,
  REBASE_DO_REBASE_ULEB_TIMES = 0x60,
  REBASE_DO_REBASE_ADD_ADDR_ULEB = 0x70,
  REBASE_DO_REBASE_ULEB_TIMES_SKIPPING_ULEB = 0x80,

  BIND_DONE = 0x00,
  BIND_SET_DYLIB_ORDINAL_IMM = 0x10,
  BIND_SET_DYLIB_ORDINAL_ULEB = 0x20,
  BIND_SET_DYLIB_SPECIAL_IMM = 0x30,
  BIND_SET_SYMBOL_TRAILING_FLAGS_IMM = 0x40,
  BIND_SET_TYPE_IMM = 0x50,
  BIND_SET_ADDEND_SLEB = 0x60,
  BIND_SET_SEGMENT_AND_OFFSET_ULEB = 0x70,
  BIND_ADD_ADDR_ULEB = 0x80,
  BIND_DO_BIND = 0x90,
  BIND_DO_BIND_ADD_ADDR_ULEB = 0xa0,
  BIND_DO_BIND_ADD_ADDR_IMM_SCALED = 0xb0,
  BIND_DO_BIND_ULEB_TIMES_SKIPPING_ULEB = 0xc0,

  OPCODE_MASK = 0xf0,
  IMMEDIATE_MASK = 0x0f,
  TYPE_POINTER = 1,
};

struct unwind_info_section_header {
  uint32_t version, commonEncodingsArraySectionOffset, commonEncodingsArrayCount,
      personalityArraySectionOffset, personalityArrayCount, indexSectionOffset, indexCount;
};

struct unwind_info_section_header_index_entry {
  uint32_t functionOffset, secondLevelPagesSectionOffset, lsdaIndexArraySectionOffset;
};

struct unwind_info_lsda_index_entry {
  uint32_t functionOffset, lsdaOffset;
};

struct unwind_info_regular_page {
  uint32_t kind;
  uint16_t entryPageOffset, entryCount;
};

struct unwind_info_compressed_page {
  uint32_t kind;
  uint16_t entryPageOffset, entryCount, encodingsPageOffset, encodingsCount;
};

enum {
  UNWIND_SECOND_LEVEL_REGULAR = 2,
  UNWIND_SECOND_LEVEL_COMPRESSED = 3,
  UNWIND_HAS_LSDA = 0x40000000,
  UNWIND_PERSONALITY_MASK = 0x30000000,
  UNWIND_MODE_MASK = 0x0f000000,
  UNWIND_DWARF_SECTION_OFFSET = 0x00ffffff,
  UNWIND_ARM64_MODE_FRAMELESS = 0x02000000,
  UNWIND_ARM64_MODE_DWARF = 0x03000000,
  UNWIND_ARM64_MODE_FRAME = 0x04000000,
  UNWIND_X86_64_MODE_RBP_FRAME = 0x01000000,
  UNWIND_X86_64_MODE_STACK_IMMD = 0x02000000,
  UNWIND_X86_64_MODE_STACK_IND = 0x03000000,
  UNWIND_X86_64_MODE_DWARF = 0x04000000,
};
