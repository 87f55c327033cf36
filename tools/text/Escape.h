// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_ESCAPE_H
#define TOOLS_TEXT_ESCAPE_H

#include <string>
#include <string_view>

#include "tools/text/Parsed.h"

/// Names come from phones, that is from strangers: whatever bytes they hold, a terminal or a log that shows them must
/// not be steered, reordered or lied to by them.
namespace idl::tools {

/// The bytes in double quotes, as one line of harmless UTF-8 that no other bytes are shown as:
///
///     \" \\ \n \r \t     these five
///     \x1b               other control characters of ASCII
///     \xff               a byte that is not part of UTF-8
///     \u{202e}           characters that are not seen as themselves: C1 controls, marks for the direction of writing,
///                        characters without width, separators, blanks other than the space, private and unassigned
///                        ones, and a combining mark that has no character before it to combine with
std::string quotedText(std::string_view bytes);

/// The same without quotes, and with backslash and double quote as they are: for texts that are not names, such as a
/// message that contains a word of the user's. What is printable stays as it is, so doing it twice is harmless.
std::string printable(std::string_view bytes);

/// The bytes that stand between quotes in the form above, the quotes left out.
/// A hexadecimal escape has exactly two digits after x, and one to six between braces.
struct Unquoted {
  std::string bytes;
  std::size_t length = 0;  // of the quoted form, both quotes included
};

/// Reads the quoted form at the start of `text`, which has to begin with a double quote. Everything that quotedText()
/// makes is read back; harmless characters may be escaped as well, others may stand as they are but for a line's end.
Parsed<Unquoted> unquoted(std::string_view text);

}  // namespace idl::tools

#endif
