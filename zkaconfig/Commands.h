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
  const char* needs;     // the operands in words: ends the message "NAME needs ..." or "NAME takes ..."
  // The numbers of operands that the command accepts, both included; `maximum` may be kAnyNumber.
  std::size_t minimum;
  std::size_t maximum;
  // The kinds of the first three operands. The last one is also the kind of all further operands.
  std::array<Operand, 3> kinds;
  bool writesNull;      // accepts --null
  const char* summary;  // one line
  const char* details;  // lines of "help COMMAND"; may be empty
  // Runs the command: writes answers to standard output and remarks to standard error, and returns the exit
  // status. Raises Failure. RunCommand() has checked the number of operands before, so the function may use
  // the first `minimum` of them.
  ExitStatus (*run)(const Arguments& arguments);
};

// The maximum of a command that takes operands without limit.
inline constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

// Returns the table of commands in the order in which help shows them. It is a constant of the program, so
// pointers to its rows stay valid.
std::span<const Command> Commands();
// Returns the command's row; null if there is no command of exactly this name.
const Command* CommandNamed(std::string_view name) noexcept;

// Checks that the command exists, that it takes this number of operands, and that it accepts --null and
// --default if they are given, and runs it. Returns the exit status of the program. Raises Failure: Usage if
// a check fails, and what the command raises.
ExitStatus RunCommand(const Arguments& arguments);

}  // namespace zekara
