// Interprets the two byte codes of LC_DYLD_INFO_ONLY: one lists the addresses in the program that move with it (rebase), the other
// the places that receive the address of an import (bind). An operation is one byte, with the operand in its lower four bits and
// further operands as LEB128 numbers behind it. All imports are bound before the program starts, lazy ones too.

#define _GNU_SOURCE
#include <stddef.h>
#include <string.h>
#include <sys/mman.h>

#include "loader.h"

static uint64_t Uleb(const uint8_t** place) {
  uint64_t value = 0;
  int shift = 0;
  uint8_t byte = 0;
  do {
    byte = *(*place)++;
    value |= (uint64_t)(byte & 0x7f) << shift;
    shift += 7;
  } while (byte & 0x80);
  return value;
}

static int64_t Sleb(const uint8_t** place) {
  int64_t value = 0;
  int shift = 0;
  uint8_t byte = 0;
  do {
    byte = *(*place)++;
    value |= (int64_t)(byte & 0x7f) << shift;
    shift += 7;
  } while (byte & 0x80);
  if (shift < 64 && (byte & 0x40)) value |= -((int64_t)1 << shift);
  return value;
}

static uint8_t* PlaceIn(unsigned segment, uint64_t offset) {
  if (segment >= g_image.segmentCount) Die("a fixup is in no segment");
  return (uint8_t*)(g_image.segments[segment]->vmaddr + g_image.slide + offset);
}

static void CheckPlace(const uint8_t* place) {
  if (place < g_image.base || place > g_image.base + g_image.size - sizeof(void*)) Die("a fixup is out of range");
}

// Rebases `count` pointers, each `skip` bytes behind the last. Returns the place behind them.
static uint8_t* RebaseMany(uint8_t* place, uint64_t count, uint64_t skip) {
  for (; count > 0; --count) {
    CheckPlace(place);
    uint64_t value = 0;
    memcpy(&value, place, sizeof value);
    value += g_image.slide;
    memcpy(place, &value, sizeof value);
    place += sizeof value + skip;
  }
  return place;
}

// Executes one operation. Returns false at the end of the code.
static bool RebaseStep(const uint8_t** code, uint8_t** place) {
  const uint8_t operation = *(*code)++;
  const unsigned operand = operation & IMMEDIATE_MASK;
  switch (operation & OPCODE_MASK) {
    case REBASE_DONE: return false;
    case REBASE_SET_TYPE_IMM:
      if (operand != TYPE_POINTER) Die("there is an unknown type of rebase, %u", operand);
      break;
    case REBASE_SET_SEGMENT_AND_OFFSET_ULEB: *place = PlaceIn(operand, Uleb(code)); break;
    case REBASE_ADD_ADDR_ULEB: *place += Uleb(code); break;
    case REBASE_ADD_ADDR_IMM_SCALED: *place += operand * sizeof(void*); break;
    case REBASE_DO_REBASE_IMM_TIMES: *place = RebaseMany(*place, operand, 0); break;
    case REBASE_DO_REBASE_ULEB_TIMES: *place = RebaseMany(*place, Uleb(code), 0); break;
    case REBASE_DO_REBASE_ADD_ADDR_ULEB: *place = RebaseMany(*place, 1, Uleb(code)); break;
    case REBASE_DO_REBASE_ULEB_TIMES_SKIPPING_ULEB: {
      const uint64_t count = Uleb(code);
      *place = RebaseMany(*place, count, Uleb(code));
      break;
    }
    default: Die("there is an unknown operation of rebasing, %#x", operation);
  }
  return true;
}

static void Rebase(void) {
  const uint8_t* code = g_image.file + g_image.fixups->rebase_off;
  const uint8_t* const end = code + g_image.fixups->rebase_size;
  uint8_t* place = NULL;
  while (code < end && RebaseStep(&code, &place)) {
  }
}

static void NothingStandsIn(const char* symbol) {
  Die("nothing stands in for %s", symbol);
}

// Writes the machine code that calls NothingStandsIn(symbol).
static void WriteTrap(uint8_t* at, const char* symbol) {
  const uint64_t argument = (uint64_t)symbol;
  const uint64_t function = (uint64_t)NothingStandsIn;
#ifdef __x86_64__
  *at++ = 0x48, *at++ = 0xbf;  // movabs $symbol, %rdi
  memcpy(at, &argument, 8), at += 8;
  *at++ = 0x48, *at++ = 0xb8;  // movabs $NothingStandsIn, %rax
  memcpy(at, &function, 8), at += 8;
  at[0] = 0xff, at[1] = 0xe0;  // jmp *%rax
#else
  static const uint32_t kCode[] = {0x58000080, 0x580000a1, 0xd61f0020, 0};  // ldr x0, 16; ldr x1, 24; br x1
  memcpy(at, kCode, 16), at += 16;
  memcpy(at, &argument, 8), at += 8;
  memcpy(at, &function, 8);
#ifndef __aarch64__
#error "this processor has no trap"
#endif
#endif
}

// Traps are written to one page after the other. A page is executable once it is written, and never both.
enum { kPage = 4096, kTrap = 32 };
static uint8_t* g_trap;
static uint8_t* g_trap_end;

static void ProtectTraps(void) {
  if (g_trap_end == NULL) return;
  uint8_t* const page = g_trap_end - kPage;
  __builtin___clear_cache((char*)page, (char*)g_trap_end);
  if (mprotect(page, kPage, PROT_READ | PROT_EXEC) != 0) Die("the traps cannot be protected");
}

// Returns the address of a new function that ends the process with the symbol's name. A missing stand-in thus matters only to a
// program that calls it.
static void* MakeTrap(const char* symbol) {
  if (g_trap == g_trap_end) {
    ProtectTraps();
    g_trap = Allocate(kPage, PROT_READ | PROT_WRITE);
    g_trap_end = g_trap + kPage;
  }
  uint8_t* const code = g_trap;
  g_trap += kTrap;
  WriteTrap(code, symbol);
  return code;
}

// Finds the child of a trie's node whose edge begins the symbol, and moves the symbol behind that edge. Null if there is none.
static const uint8_t* FindChild(const uint8_t* trie, const uint8_t* children, const char** symbol) {
  for (unsigned count = *children++; count > 0; --count) {
    const char* edge = (const char*)children;
    const size_t length = strlen(edge);
    children += length + 1;
    const uint64_t offset = Uleb(&children);
    if (strncmp(edge, *symbol, length) != 0) continue;
    *symbol += length;
    return trie + offset;
  }
  return NULL;
}

// Returns the address of a symbol that the program exports; null if it does not. Exports form a trie of their names.
static void* FindExport(const char* symbol) {
  if (g_image.fixups->export_size == 0) return NULL;
  const uint8_t* const trie = g_image.file + g_image.fixups->export_off;
  for (const uint8_t* node = trie; node != NULL;) {
    const uint64_t terminalSize = Uleb(&node);
    if (*symbol != '\0') {
      node = FindChild(trie, node + terminalSize, &symbol);
      continue;
    }
    if (terminalSize == 0) return NULL;
    Uleb(&node);  // flags
    return g_image.base + Uleb(&node);
  }
  return NULL;
}

struct Binding {
  bool isWeak;  // binds to the program's own export; if there is none, the place keeps its value
  bool isLazy;  // BIND_DONE only separates the entries of this table
  const char* symbol;
  int64_t addend;
  uint8_t* place;
};

// Binds `count` pointers, each `skip` bytes behind the last.
static void BindMany(struct Binding* binding, uint64_t count, uint64_t skip) {
  void* target = binding->isWeak ? FindExport(binding->symbol) : FindStandIn(binding->symbol);
  if (target == NULL && !binding->isWeak) target = MakeTrap(binding->symbol);
  for (; count > 0; --count) {
    CheckPlace(binding->place);
    const uint64_t value = (uint64_t)target + (uint64_t)binding->addend;
    if (target != NULL) memcpy(binding->place, &value, sizeof value);
    binding->place += sizeof value + skip;
  }
}

// Executes one operation. Returns false at the end of the code.
static bool BindStep(const uint8_t** code, struct Binding* binding) {
  const uint8_t operation = *(*code)++;
  const unsigned operand = operation & IMMEDIATE_MASK;
  switch (operation & OPCODE_MASK) {
    case BIND_DONE: return binding->isLazy;
    case BIND_SET_DYLIB_ORDINAL_IMM:
    case BIND_SET_DYLIB_SPECIAL_IMM: break;
    case BIND_SET_DYLIB_ORDINAL_ULEB: Uleb(code); break;
    case BIND_SET_SYMBOL_TRAILING_FLAGS_IMM:
      binding->symbol = (const char*)*code;
      *code += strlen(binding->symbol) + 1;
      break;
    case BIND_SET_TYPE_IMM:
      if (operand != TYPE_POINTER) Die("there is an unknown type of binding, %u", operand);
      break;
    case BIND_SET_ADDEND_SLEB: binding->addend = Sleb(code); break;
    case BIND_SET_SEGMENT_AND_OFFSET_ULEB: binding->place = PlaceIn(operand, Uleb(code)); break;
    case BIND_ADD_ADDR_ULEB: binding->place += Uleb(code); break;
    case BIND_DO_BIND: BindMany(binding, 1, 0); break;
    case BIND_DO_BIND_ADD_ADDR_ULEB: BindMany(binding, 1, Uleb(code)); break;
    case BIND_DO_BIND_ADD_ADDR_IMM_SCALED: BindMany(binding, 1, operand * sizeof(void*)); break;
    case BIND_DO_BIND_ULEB_TIMES_SKIPPING_ULEB: {
      const uint64_t count = Uleb(code);
      BindMany(binding, count, Uleb(code));
      break;
    }
    default: Die("there is an unknown operation of binding, %#x", operation);
  }
  return true;
}

static void Bind(uint32_t offset, uint32_t size, struct Binding binding) {
  const uint8_t* code = g_image.file + offset;
  const uint8_t* const end = code + size;
  while (code < end && BindStep(&code, &binding)) {
  }
}

void FixUp(void) {
  const struct dyld_info_command* fixups = g_image.fixups;
  Rebase();
  Bind(fixups->bind_off, fixups->bind_size, (struct Binding){});
  Bind(fixups->weak_bind_off, fixups->weak_bind_size, (struct Binding){.isWeak = true});
  Bind(fixups->lazy_bind_off, fixups->lazy_bind_size, (struct Binding){.isLazy = true});
  ProtectTraps();
}
