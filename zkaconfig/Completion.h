#pragma once

#include <span>
#include <string>

namespace zekara {

// The hidden command by which the shells' scripts ask for candidates.
inline constexpr const char* kCompletionCommand = "__complete";

// Returns what may take the place of the last of `words`, which are the words after the program's name up to
// the cursor; the last one is empty or incomplete. Each candidate is a line: the candidate, a tab, and a
// description, which may be empty. A candidate that ends in "=" takes no blank after it. The one line
// ":files" means that the shell completes file names. Raises nothing that a shell would have to show: where
// nothing can be offered, the text is empty.
std::string CompletionText(std::span<const char* const> words);

}  // namespace zekara
