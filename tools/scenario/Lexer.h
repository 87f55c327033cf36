// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_LEXER_H
#define TOOLS_SCENARIO_LEXER_H

#include <string>
#include <string_view>
#include <vector>

namespace idl::tools::scenario {

/// A place in a scenario, both numbers from 1; columns count characters.
struct Position {
  unsigned line = 1;
  unsigned column = 1;
};

/// What is wrong at a place of a scenario.
struct Mistake {
  std::string file;
  Position position;
  std::string text;
};

/// "FILE:LINE:COLUMN: TEXT".
std::string mistakeText(const Mistake& mistake);

/// A word, a quoted text, or a word and what is given to it by an equals sign.
struct Token {
  std::string key;  // of key=value, else empty
  std::string text;
  bool isQuoted = false;  // the text was
  Position position;
  Position textPosition;  // where `text` begins: behind the equals sign, if there is one

  bool isPair() const { return !key.empty(); }
};

/// What stands in one line, or up to a semicolon.
struct Statement {
  std::vector<Token> tokens;  // at least one
  std::string text;           // as it was written, without blanks around it
  Position position;
};

/// Cuts a scenario into statements.
///
///     phone add anna name="Anna's phone" btid=3   # up to the line's end this is a comment
///     bt pair anna ; wait 1s
///
/// Blanks, tabs and carriage returns separate tokens; `#` begins a comment everywhere but in a quoted text. Quoted
/// texts are those of unquoted() and end in their line. A line in which something is wrong is left out and told in
/// `mistakes`.
struct Lexing {
  std::vector<Statement> statements;
  std::vector<Mistake> mistakes;
};
Lexing lex(const std::string& file, std::string_view text);

}  // namespace idl::tools::scenario

#endif
