#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "zkaconfig/Arguments.h"
#include "zkaconfig/Failure.h"

namespace zekara {

// A command of zkaconfig. Dispatch, the checks of operands, help and completion all use the one table, so a
// command is added by one row and the function that runs it. All texts are constants in English.
//
//   const Command* command = CommandNamed("get");  // "SECTION KEY...", at least two operands
struct Command {
  // The kinds of operands, as completion distinguishes them: None is for operands that the command does not
  // take, Setting is KEY=VALUE, and Element is an element of a list that the file holds.
  enum class Operand { None, Section, Key, Setting, Element, File, CommandName };

  std::string_view name;
  const char* operands;  // as the usage line shows them
  const char* needs;     // the operands in words, for messages
  std::size_t minimum;
  std::size_t maximum;
  std::array<Operand, 3> kinds;  // the last one is also the kind of all further operands
  bool writesNull;               // accepts --null
  const char* summary;           // one line
  const char* details;           // lines of "help COMMAND"; may be empty
  // Writes answers to standard output and remarks to standard error. Raises Failure.
  ExitStatus (*run)(const Arguments& arguments);
};

// The maximum of a command that takes operands without limit.
inline constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

// Returns the table of commands, a constant, in the order in which help shows them.
std::span<const Command> Commands();
// Returns the command's row; null if there is no command of exactly this name.
const Command* CommandNamed(std::string_view name) noexcept;

// Checks that the command exists, that it takes this number of operands, and that it accepts --null and
// --default if they are given, and runs it. Returns the exit status of the program. Raises Failure: Usage if
// a check fails, and what the command raises.
ExitStatus RunCommand(const Arguments& arguments);

}  // namespace zekara
