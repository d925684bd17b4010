// The contract between the loader's parts.
#pragma once

#include <assert.h>
#include <stdbool.h>
#include <stdint.h>

#include "macho.h"

// Prints "macho-loader: ..." to standard error and ends the process with status 125, without running the
// program's exit handlers.
_Noreturn void Die(const char* format, ...) __attribute__((format(printf, 1, 2)));

enum { kMaximumSegments = 16 };

// The program that is loaded. ReadImage() fills in the parts that the file describes, MapImage() the rest.
struct Image {
  const uint8_t* file;  // this processor's part of the embedded file
  uint64_t fileSize;
  const struct segment_command_64* segments[kMaximumSegments];
  unsigned segmentCount;
  const struct dyld_info_command* fixups;
  const struct entry_point_command* entry;
  uint8_t* base;         // the address of its Mach-O header in memory
  uint64_t size;         // of its whole address range
  uint64_t slide;        // from the addresses in the file to those in memory
  uint8_t* tlvTemplate;  // initial values of its thread-local variables
  uint64_t tlvSize;
  const char* name;  // the last part of argv[0]
  int argc;
  char** argv;
};
extern struct Image g_image;

// image.c
// Returns new memory, and ends the process if there is none. Tries twice, because tests make single calls
// fail and mean the program's.
void* Allocate(uint64_t size, int protection);
// Finds this processor's part of the embedded file, and reads its load commands.
void ReadImage(void);
// Copies the segments into memory, writable. ProtectImage() gives them their own protection, once they are
// fixed up.
void MapImage(void);
void ProtectImage(void);
// Calls visit(address, size) for each section of this type, in the file's order.
void ForEachSection(uint32_t type, void (*visit)(uint8_t* address, uint64_t size));
// Returns the address of a section, and its size; null if the program has none of that name.
uint8_t* FindSection(const char* name, uint64_t* size);

// fixups.c
// Adjusts every address in the program to its place in memory, and binds every import to its stand-in.
void FixUp(void);

// standins.c
// Returns the address of the stand-in for a symbol of libSystem's, null if there is none.
void* FindStandIn(const char* symbol);

// processes.c
// Notes which file this process runs. To be called before anything that the program could influence.
void NoteOwnFile(void);

// threads.c
// Ends the process as macOS's exit() does: the destructors of thread-local objects run first, then the
// functions of atexit().
_Noreturn void DarwinExit(int status);

// start-*.S
// Calls the function on the stack that ends at `top`, or on the present one if that is null.
int CallOnStack(int (*function)(int, char**, char**, char**), int argc, char** argv, char** envp,
                char** apple, void* top);
// The function that every thread-local variable's descriptor names; compiled code calls it to get the
// variable's address.
extern char TlvThunk[];
