// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/Parser.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "tools/text/Duration.h"
#include "tools/text/Escape.h"
#include "tools/text/NearestWord.h"
#include "tools/text/Number.h"

namespace idl::tools::scenario {

namespace {

/// Leaves a statement that cannot be understood; does not leave this file.
struct Misunderstood {
  Position position;
  std::string text;
};

[[noreturn]] void misunderstood(const Position& position, std::string text) {
  throw Misunderstood{position, std::move(text)};
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : ", ") + word;
  }
  return text;
}

void addNew(std::vector<std::string>& words, const std::string& word) {
  if (std::find(words.begin(), words.end(), word) == words.end()) {
    words.push_back(word);
  }
}

using Shapes = std::vector<const CommandShape*>;

/// The only shape of these first words. Looks one word further as long as there are several.
const CommandShape& shapeOf(const Statement& statement) {
  Shapes shapes;
  for (const CommandShape& shape : commandShapes()) {
    shapes.push_back(&shape);
  }
  for (std::size_t i = 0;; ++i) {
    Shapes ended;
    Shapes fitting;
    std::vector<std::string> words;
    const Token* token = i < statement.tokens.size() ? &statement.tokens[i] : nullptr;
    const bool isWord = token != nullptr && !token->isPair() && !token->isQuoted;
    for (const CommandShape* shape : shapes) {
      if (i == shape->verb.size()) {
        ended.push_back(shape);
        continue;
      }
      for (const std::string& word : shape->verb[i]) {
        addNew(words, word);
        if (isWord && word == token->text) {
          fitting.push_back(shape);
        }
      }
    }
    if (fitting.empty() && !ended.empty()) {
      return *ended.front();
    }
    if (fitting.empty()) {
      const Token& last = statement.tokens.back();
      const Position& position = token != nullptr ? token->position : last.position;
      if (!isWord) {
        misunderstood(position, (token != nullptr ? "expected here: " : "expected after this: ") + joined(words));
      }
      misunderstood(position, unknownWord("word", token->text, words) + "; expected here: " + joined(words));
    }
    shapes = fitting;
  }
}

std::string usageOf(const CommandShape& shape) { return std::string("usage: ") + shape.rule->usage; }

std::uint64_t numberIn(const Token& token, std::uint64_t least, std::uint64_t most, const char* what) {
  const auto number = unsignedNumber(token.text);
  if (!number || *number < least || *number > most) {
    misunderstood(token.textPosition, '\'' + printable(token.text) + "' is not " + what);
  }
  return *number;
}

std::uint64_t portIn(const Token& token) {
  const auto number = signedNumber(token.text);
  if (!number) {
    misunderstood(token.textPosition, '\'' + printable(token.text) + "' is not a port, a number of 32 bits");
  }
  return static_cast<std::uint64_t>(std::int64_t{*number});
}

bool isHandle(const std::string& text) {
  const auto isPart = [](char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '-' || character == '_';
  };
  return !text.empty() && std::all_of(text.begin(), text.end(), isPart);
}

}  // namespace

Parser::Parser(std::string file) : mFile(std::move(file)) {}

Parsing Parser::parse(std::string_view text) {
  Lexing lexing = lex(mFile, text);
  Parsing parsing;
  parsing.mistakes = std::move(lexing.mistakes);
  for (const Statement& statement : lexing.statements) {
    try {
      parsing.commands.push_back(parseStatement(statement));
    } catch (const Misunderstood& error) {
      parsing.mistakes.push_back({mFile, error.position, error.text});
      knowWhatWasMeant(statement);
    }
  }
  std::stable_sort(parsing.mistakes.begin(), parsing.mistakes.end(),
                   [](const Mistake& a, const Mistake& b) { return a.position.line < b.position.line; });
  return parsing;
}

Command Parser::parseStatement(const Statement& statement) {
  const CommandShape& shape = shapeOf(statement);
  Command command;
  command.kind = shape.rule->kind;
  command.position = statement.position;
  command.text = statement.text;
  std::vector<std::string> keys;
  for (const Option& option : shape.options) {
    keys.push_back(option.key);
  }

  for (std::size_t i = 0; i < statement.tokens.size(); ++i) {
    const Token& token = statement.tokens[i];
    if (i < shape.verb.size()) {
      command.words.push_back(token.text);
    } else if (token.isPair()) {
      const auto option = std::find_if(shape.options.begin(), shape.options.end(),
                                       [&](const Option& one) { return one.key == token.key; });
      if (option == shape.options.end()) {
        misunderstood(token.position, unknownWord("word", token.key, keys) + "; " + usageOf(shape));
      }
      if (!command.options.emplace(token.key, valueOf(option->value, token)).second) {
        misunderstood(token.position, token.key + "= is given twice");
      }
    } else {
      const std::size_t next = command.operands.size();
      const bool isOneMore = next >= shape.operands.size() && !shape.operands.empty() && shape.operands.back().isMany;
      if (next >= shape.operands.size() && !isOneMore) {
        // A word without its equals sign, most likely.
        misunderstood(token.position, "one word too many; " + usageOf(shape));
      }
      command.operands.push_back(valueOf(isOneMore ? shape.operands.back() : shape.operands[next], token));
    }
  }

  const Position& end = statement.tokens.back().position;
  for (std::size_t i = command.operands.size(); i < shape.operands.size(); ++i) {
    if (!shape.operands[i].isOptional) {
      misunderstood(end, shape.operands[i].name + " is missing after this; " + usageOf(shape));
    }
  }
  for (const Option& option : shape.options) {
    if (!option.value.isOptional && command.option(option.key) == nullptr) {
      misunderstood(end, option.key + "= is missing; " + usageOf(shape));
    }
  }

  if (command.kind == CommandKind::PHONE_ADD) {
    mPhones.insert(command.operands.front().text);
  } else if (command.kind == CommandKind::PHONE_REMOVE) {
    for (const Value& phone : command.operands) {
      mPhones.erase(phone.text);
    }
  }
  return command;
}

// A phone whose other words are wrong was meant to be there: what is done with it is no further mistake.
void Parser::knowWhatWasMeant(const Statement& statement) {
  const std::vector<Token>& tokens = statement.tokens;
  if (tokens.size() > 2 && tokens[0].text == "phone" && tokens[1].text == "add" && isHandle(tokens[2].text)) {
    mPhones.insert(tokens[2].text);
  }
}

Value Parser::valueOf(const Operand& kind, const Token& token) const {
  Value value;
  value.text = token.text;
  if (token.isQuoted && kind.kind != ValueKind::TEXT) {
    misunderstood(token.textPosition, "only names are quoted; expected here: " + kind.name);
  }
  switch (kind.kind) {
    case ValueKind::CHOICE:
      if (std::find(kind.choices.begin(), kind.choices.end(), token.text) == kind.choices.end()) {
        misunderstood(token.textPosition,
                      unknownWord("word", token.text, kind.choices) + "; expected here: " + joined(kind.choices));
      }
      break;
    case ValueKind::TEXT:
      if (token.text.find('\0') != std::string::npos) {
        misunderstood(token.textPosition, "a name holds no NUL");
      }
      break;
    case ValueKind::HANDLE:
      if (!isHandle(token.text)) {
        misunderstood(token.textPosition,
                      '\'' + printable(token.text) + "' is no handle: those are letters, digits, - and _");
      }
      if (mPhones.count(token.text) != 0) {
        misunderstood(token.textPosition, "there is a phone '" + token.text + "' already");
      }
      break;
    case ValueKind::PHONE:
      if (mPhones.count(token.text) == 0) {
        misunderstood(token.textPosition, unknownWord("phone", token.text, phones()));
      }
      break;
    case ValueKind::BTID:
      value.number =
          token.text == "none" ? BTID_NONE : numberIn(token, 0, BTID_NONE - 1, "a Bluetooth id, 0 to 254 or none");
      break;
    case ValueKind::ID:
      value.number = numberIn(token, 1, std::numeric_limits<std::uint64_t>::max(), "an identifier, 1 to 2^64-1");
      break;
    case ValueKind::ANYID:
      value.number = numberIn(token, 0, std::numeric_limits<std::uint64_t>::max(), "an identifier, 0 to 2^64-1");
      break;
    case ValueKind::PORT:
      value.number = portIn(token);
      break;
    case ValueKind::BYTE:
      value.number = numberIn(token, 0, 255, "a number from 0 to 255");
      break;
    case ValueKind::NUMBER:
      value.number = numberIn(token, 0, std::numeric_limits<std::uint32_t>::max(), "a number from 0 to 4294967295");
      break;
    case ValueKind::ROW:
      value.number = numberIn(token, 1, 1000, "a row, counted from 1");
      break;
    case ValueKind::COUNT:
      value.number = numberIn(token, 0, 1000000, "a count, 0 to 1000000");
      break;
    case ValueKind::DURATION: {
      const auto duration = parseDuration(token.text);
      if (!duration) {
        misunderstood(token.textPosition, '\'' + printable(token.text) + "': " + duration.error);
      }
      value.number = static_cast<std::uint64_t>(duration.value->count());
      break;
    }
  }
  return value;
}

}  // namespace idl::tools::scenario
