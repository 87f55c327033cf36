// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/Lexer.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "tools/text/Escape.h"
#include "tools/text/Utf8.h"

namespace idl::tools::scenario {

namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";  // some editors begin a UTF-8 file with it

bool isBlank(char character) { return character == ' ' || character == '\t' || character == '\r'; }

bool endsWord(char character) { return isBlank(character) || character == ';' || character == '#' || character == '"'; }

/// Reads one line, statement by statement.
class LineLexer {
 public:
  LineLexer(const std::string& file, std::string_view line, unsigned number)
      : mFile(file), mLine(line), mNumber(number) {}

  void run(Lexing& result) {
    std::vector<Statement> statements;
    do {
      if (!readStatement(statements)) {
        result.mistakes.push_back({mFile, positionAt(mMistakeAt), mMistake});
        return;
      }
    } while (mAt < mLine.size() && mLine[mAt++] == ';');
    result.statements.insert(result.statements.end(), statements.begin(), statements.end());
  }

 private:
  // Goes on counting where it last stood: a line may be long, and its places are asked for from left to right.
  Position positionAt(std::size_t at) {
    if (at < mCountedTo) {
      mCountedTo = 0;
      mColumn = 1;
    }
    for (; mCountedTo < at && mCountedTo < mLine.size(); mCountedTo += utf8At(mLine, mCountedTo).length) {
      ++mColumn;
    }
    return {mNumber, mColumn};
  }

  bool fail(std::size_t at, std::string why) {
    mMistakeAt = at;
    mMistake = std::move(why);
    return false;
  }

  // Up to a semicolon, a comment or the line's end. @return false when something is wrong.
  bool readStatement(std::vector<Statement>& statements) {
    Statement statement;
    std::size_t begin = 0;
    std::size_t end = 0;
    for (;;) {
      while (mAt < mLine.size() && isBlank(mLine[mAt])) {
        ++mAt;
      }
      if (mAt < mLine.size() && mLine[mAt] == '#') {
        mAt = mLine.size();
      }
      if (mAt == mLine.size() || mLine[mAt] == ';') {
        break;
      }
      if (statement.tokens.empty()) {
        begin = mAt;
      }
      if (!readToken(statement)) {
        return false;
      }
      end = mAt;
    }
    if (!statement.tokens.empty()) {
      statement.text = mLine.substr(begin, end - begin);
      statement.position = statement.tokens.front().position;
      statements.push_back(std::move(statement));
    }
    return true;
  }

  bool readToken(Statement& statement) {
    Token token;
    token.position = positionAt(mAt);
    token.textPosition = token.position;
    if (mLine[mAt] != '"') {
      const std::size_t begin = mAt;
      std::size_t equals = std::string_view::npos;
      for (; mAt < mLine.size() && !endsWord(mLine[mAt]); ++mAt) {
        if (mLine[mAt] == '=' && equals == std::string_view::npos) {
          equals = mAt;
        }
      }
      const std::string_view word = mLine.substr(begin, mAt - begin);
      const bool quoteFollows = mAt < mLine.size() && mLine[mAt] == '"';
      if (equals == std::string_view::npos) {
        if (quoteFollows) {
          return fail(mAt, "a blank is missing before the quoted text");
        }
        token.text = word;
        statement.tokens.push_back(std::move(token));
        return true;
      }
      token.key = mLine.substr(begin, equals - begin);
      token.text = mLine.substr(equals + 1, mAt - equals - 1);
      token.textPosition = positionAt(equals + 1);
      if (token.key.empty()) {
        return fail(begin, "there is no word before the equals sign");
      }
      if (quoteFollows && !token.text.empty()) {
        return fail(mAt, "a blank is missing before the quoted text");
      }
      if (!quoteFollows && token.text.empty()) {
        return fail(equals + 1, "there is nothing after '" + printable(token.key) + "='; an empty text is \"\"");
      }
      if (!quoteFollows) {
        statement.tokens.push_back(std::move(token));
        return true;
      }
    }
    const std::size_t quote = mAt;
    const Parsed<Unquoted> text = unquoted(mLine.substr(quote));
    if (!text) {
      return fail(quote, text.error);
    }
    token.text = text.value->bytes;
    token.isQuoted = true;
    mAt = quote + text.value->length;
    if (mAt < mLine.size() && mLine[mAt] != ';' && mLine[mAt] != '#' && !isBlank(mLine[mAt])) {
      return fail(mAt, "a blank is missing after the quoted text");
    }
    statement.tokens.push_back(std::move(token));
    return true;
  }

  const std::string& mFile;
  const std::string_view mLine;
  const unsigned mNumber;
  std::size_t mAt = 0;
  std::size_t mCountedTo = 0;
  unsigned mColumn = 1;  // there
  std::size_t mMistakeAt = 0;
  std::string mMistake;
};

}  // namespace

std::string mistakeText(const Mistake& mistake) {
  return printable(mistake.file) + ':' + std::to_string(mistake.position.line) + ':' +
         std::to_string(mistake.position.column) + ": " + mistake.text;
}

Lexing lex(const std::string& file, std::string_view text) {
  Lexing result;
  if (text.substr(0, BYTE_ORDER_MARK.size()) == BYTE_ORDER_MARK) {
    text.remove_prefix(BYTE_ORDER_MARK.size());
  }
  unsigned number = 1;
  for (std::size_t begin = 0; begin < text.size(); ++number) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    LineLexer(file, text.substr(begin, end - begin), number).run(result);
    begin = end + 1;
  }
  return result;
}

}  // namespace idl::tools::scenario
