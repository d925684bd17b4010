#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "zkaconfig/Arguments.h"
#include "zkaconfig/Failure.h"

namespace zekara {

// A command of zkaconfig. Dispatch, the checks of operands, help and completion all use the one table.
struct Command {
  // The kinds of operands, as completion distinguishes them.
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

inline constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

std::span<const Command> Commands();
// Null if there is no command of this name.
const Command* CommandNamed(std::string_view name) noexcept;

// Checks the operands' number and runs the command. Raises Failure.
ExitStatus RunCommand(const Arguments& arguments);

}  // namespace zekara
