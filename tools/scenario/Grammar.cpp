// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/Grammar.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "tools/scenario/Lexer.h"

namespace idl::tools::scenario {

namespace {

// What a phone has, and what a row of the list has.
#define PHONE_HAS "[name=TEXT] [btid=BTID] [address=TEXT] [cp=ID] [aap=TEXT] [port=PORT] [session=BYTE]"
#define ROW_HAS                                                                                          \
  "[type=SOURCE] [btid=BTID] [port=PORT] [session=BYTE] [suffix=BYTE] [cp=ANYID] [aap=TEXT] [own=TEXT] " \
  "[within=DURATION]"

const std::vector<std::pair<std::string, ValueKind>> VALUE_KINDS = {
    {"TEXT", ValueKind::TEXT}, {"HANDLE", ValueKind::HANDLE}, {"PHONE", ValueKind::PHONE},
    {"BTID", ValueKind::BTID}, {"ID", ValueKind::ID},         {"ANYID", ValueKind::ANYID},
    {"PORT", ValueKind::PORT}, {"BYTE", ValueKind::BYTE},     {"NUMBER", ValueKind::NUMBER},
    {"ROW", ValueKind::ROW},   {"COUNT", ValueKind::COUNT},   {"DURATION", ValueKind::DURATION},
};

std::vector<std::string> alternatives(const std::string& word) {
  if (word == "SOURCE") {
    return {"bt", "cp", "aap"};
  }
  std::vector<std::string> found;
  std::istringstream input(word);
  for (std::string one; std::getline(input, one, '|');) {
    found.push_back(one);
  }
  return found;
}

bool isCapital(char character) { return character >= 'A' && character <= 'Z'; }

bool removeEnd(std::string& word, const std::string& end) {
  const bool has = word.size() > end.size() && word.compare(word.size() - end.size(), end.size(), end) == 0;
  if (has) {
    word.erase(word.size() - end.size());
  }
  return has;
}

Operand operandOf(std::string word) {
  Operand operand;
  operand.isMany = removeEnd(word, "...");
  operand.name = word;
  if (!isCapital(word.front()) || word == "SOURCE") {
    operand.kind = ValueKind::CHOICE;
    operand.choices = alternatives(word);
    return operand;
  }
  for (const auto& [name, kind] : VALUE_KINDS) {
    if (name == word) {
      operand.kind = kind;
      return operand;
    }
  }
  throw std::logic_error("no kind of value: " + word);
}

CommandShape shapeOf(const CommandRule& rule) {
  CommandShape shape;
  shape.rule = &rule;
  std::istringstream input(rule.usage);
  for (std::string word; input >> word;) {
    const bool isOptional = word.front() == '[';
    if (isOptional) {
      word = word.substr(1, word.size() - 2);
    }
    const std::size_t equals = word.find('=');
    const bool isVerb = !isOptional && (!isCapital(word.front()) || shape.verb.empty());
    if (equals != std::string::npos) {
      Option option = {word.substr(0, equals), operandOf(word.substr(equals + 1))};
      option.value.isOptional = isOptional;
      shape.options.push_back(std::move(option));
    } else if (isVerb) {
      shape.verb.push_back(alternatives(word));
    } else {
      Operand operand = operandOf(word);
      operand.isOptional = isOptional;
      shape.operands.push_back(std::move(operand));
    }
  }
  return shape;
}

bool contains(const std::vector<std::string>& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

/// The shapes whose first words these may be, whole or in part.
std::vector<const CommandShape*> shapesFor(const std::vector<Token>& tokens) {
  std::vector<const CommandShape*> found;
  for (const CommandShape& shape : commandShapes()) {
    bool fits = true;
    for (std::size_t i = 0; fits && i < shape.verb.size() && i < tokens.size(); ++i) {
      fits = !tokens[i].isPair() && !tokens[i].isQuoted && contains(shape.verb[i], tokens[i].text);
    }
    if (fits) {
      found.push_back(&shape);
    }
  }
  return found;
}

void offerOptions(const CommandShape& shape, const std::vector<Token>& tokens, std::set<std::string>& offers) {
  for (const Option& option : shape.options) {
    const bool isGiven =
        std::any_of(tokens.begin(), tokens.end(), [&](const Token& token) { return token.key == option.key; });
    if (isGiven) {
      continue;
    }
    if (option.value.kind != ValueKind::CHOICE) {
      offers.insert(option.key + '=');
    }
    for (const std::string& choice : option.value.choices) {
      offers.insert(option.key + '=' + choice);
    }
  }
}

std::size_t operandsGiven(const CommandShape& shape, const std::vector<Token>& tokens) {
  const auto isBare = [](const Token& token) { return !token.isPair(); };
  return static_cast<std::size_t>(std::count_if(tokens.begin(), tokens.end(), isBare)) - shape.verb.size();
}

void offerOperand(const CommandShape& shape, std::size_t given, const std::vector<std::string>& phones,
                  std::set<std::string>& offers) {
  const bool isOneMore = given >= shape.operands.size() && !shape.operands.empty() && shape.operands.back().isMany;
  const std::size_t next = isOneMore ? shape.operands.size() - 1 : given;
  if (next >= shape.operands.size()) {
    return;
  }
  const Operand& operand = shape.operands[next];
  offers.insert(operand.choices.begin(), operand.choices.end());
  if (operand.kind == ValueKind::PHONE) {
    offers.insert(phones.begin(), phones.end());
  }
}

}  // namespace

const std::vector<CommandRule>& commandRules() {
  static const std::vector<CommandRule> RULES = {
      {CommandKind::PHONE_ADD, "phone add HANDLE " PHONE_HAS, "A phone comes into being; nobody lists it yet.",
       "phone add anna name=\"Anna's phone\" btid=3 port=2"},
      {CommandKind::PHONE_CHANGE, "phone change PHONE " PHONE_HAS,
       "The phone is another one from now on, also where it is listed.", "phone change anna btid=7 session=1"},
      {CommandKind::PHONE_RENAME, "phone rename PHONE TEXT", "The same as phone change with name=.",
       "phone rename anna \"Work\""},
      {CommandKind::PHONE_REMOVE, "phone remove PHONE...", "Nobody lists the phone any more, and its handle is free.",
       "phone remove anna ben"},
      {CommandKind::BT_PAIR, "bt pair PHONE...", "Bluetooth lists the phones, one after the other.",
       "bt pair anna ben"},
      {CommandKind::BT_UNPAIR, "bt unpair PHONE...", "Bluetooth lists them no longer.", "bt unpair anna"},
      {CommandKind::CP_KNOWN, "cp known PHONE... [btid=BTID] [session=BYTE]",
       "CarPlay lists the phones; they are not connected.", "cp known anna ben"},
      {CommandKind::CP_CONNECT, "cp connect PHONE [btid=BTID] [session=BYTE]",
       "CarPlay lists the phone, which is the connected one from now on.", "cp connect anna session=1"},
      {CommandKind::CP_DISCONNECT, "cp disconnect", "No phone is connected for CarPlay; the listed ones stay.",
       "cp disconnect"},
      {CommandKind::CP_FORGET, "cp forget PHONE...", "CarPlay lists them no longer.", "cp forget anna"},
      {CommandKind::AAP_KNOWN, "aap known PHONE... [btid=BTID] [session=BYTE]",
       "Android Auto lists the phones, not connected by USB.", "aap known ben session=2"},
      {CommandKind::AAP_PLUG, "aap plug PHONE... [port=PORT] [btid=BTID] [session=BYTE]",
       "Android Auto lists the phones, connected by USB.", "aap plug ben port=1"},
      {CommandKind::AAP_UNPLUG, "aap unplug PHONE...", "They stay listed, on port 0.", "aap unplug ben"},
      {CommandKind::AAP_FORGET, "aap forget PHONE...", "Android Auto lists them no longer.", "aap forget ben"},
      {CommandKind::SOURCE_CHANGE, "SOURCE change PHONE " PHONE_HAS,
       "This source alone says something else of a phone that it lists.", "aap change ben btid=7"},
      {CommandKind::SOURCE_RENAME, "SOURCE rename PHONE TEXT", "The same as SOURCE change with name=.",
       "bt rename anna \"Anna (car)\""},
      {CommandKind::SOURCE_CLEAR, "SOURCE clear", "The source lists no phone any more, all at once.", "cp clear"},
      {CommandKind::SOURCE_RESTART, "SOURCE restart [keep=yes|no]",
       "The service ends and starts anew: it empties its table, and lists its phones again unless keep=no.",
       "bt restart keep=no"},
      {CommandKind::SOURCE_CRASH, "SOURCE crash [PHONE] while=locked|half|notify",
       "The service is killed: while it holds its table's lock, half-way through writing the phone, or after that and "
       "before it tells anybody. The next command for it starts a new one.",
       "bt crash ben while=half"},
      {CommandKind::SOURCE_GARBAGE, "SOURCE garbage [seed=NUMBER]",
       "The table is overwritten with random bytes, and clients are told.", "aap garbage seed=7"},
      {CommandKind::SOURCE_CUT, "SOURCE cut bytes=NUMBER", "The table's segment is cut to that length; nobody is told.",
       "bt cut bytes=100"},
      {CommandKind::SOURCE_VANISH, "SOURCE vanish",
       "The table's segment is removed under everybody's feet; nobody is told.", "cp vanish"},
      {CommandKind::SOURCE_RETURN, "SOURCE return",
       "The segment is there again, whole, and a new service lists the source's phones.", "cp return"},
      {CommandKind::FUNCINFO_SET, "funcinfo bt=yes|no",
       "Whether the unit has Bluetooth; clients read it when they start.", "funcinfo bt=yes"},
      {CommandKind::FUNCINFO_VANISH, "funcinfo vanish", "The segment FuncInfo is removed.", "funcinfo vanish"},
      {CommandKind::CLIENT_START, "client start [format=plain|number-first|same] [follow=yes|no] [refresh=all|none]",
       "Starts the client, which initialises its list and refreshes bt, cp and aap.",
       "client start format=number-first"},
      {CommandKind::CLIENT_RESTART,
       "client restart [format=plain|number-first|same] [follow=yes|no] [refresh=all|none]",
       "Ends the client, if it runs, and starts it as it was started before but for what is given.", "client restart"},
      {CommandKind::CLIENT_STOP, "client stop", "Ends the client as programs end.", "client stop"},
      {CommandKind::CLIENT_KILL, "client kill", "Kills the client.", "client kill"},
      {CommandKind::CLIENT_REFRESH, "client refresh SOURCE...",
       "The client takes over these tables although nobody told it.", "client refresh aap bt"},
      {CommandKind::SAVED_SET, "saved set TEXT btid=BTID suffix=BYTE",
       "The saved file has this number for this paired phone; a client reads it when it starts.",
       "saved set \"iPhone\" btid=4 suffix=2"},
      {CommandKind::SAVED_FORGET, "saved forget", "There is no saved file.", "saved forget"},
      {CommandKind::SAVED_CUT, "saved cut bytes=NUMBER", "The saved file is cut to that length.",
       "saved cut bytes=300"},
      {CommandKind::SAVED_GARBAGE, "saved garbage [seed=NUMBER]", "The saved file is overwritten with random bytes.",
       "saved garbage"},
      {CommandKind::WAIT, "wait DURATION", "Nothing happens for so long, divided by --speed.", "wait 1.5s"},
      {CommandKind::RANDOM, "random COUNT", "So many commands by chance, the same ones for the same --seed.",
       "random 1000"},
      {CommandKind::EXPECT_LIST, "expect list [TEXT] [count=COUNT] " ROW_HAS,
       "Some row is like this; with count=, exactly so many are.", "expect list \"iPhone 2\" btid=4"},
      {CommandKind::EXPECT_NO, "expect no [TEXT] " ROW_HAS, "No row is like this.", "expect no \"iPhone\" within=2s"},
      {CommandKind::EXPECT_ROW, "expect row ROW [TEXT] " ROW_HAS, "This row, counted from 1, is like this.",
       "expect row 2 type=aap port=1"},
      {CommandKind::EXPECT_ORDER, "expect order TEXT... [within=DURATION]",
       "These names stand in this order; others may stand between them.", "expect order \"iPhone\" \"iPhone 2\""},
      {CommandKind::EXPECT_STARTED, "expect started yes|no [within=DURATION]", "Whether the client has a list at all.",
       "expect started no"},
      {CommandKind::EXPECT_SUFFIX, "expect suffix TEXT BYTE [within=DURATION]",
       "Some phone of this own name has this number.", "expect suffix \"iPhone\" 2"},
  };
  return RULES;
}

#undef PHONE_HAS
#undef ROW_HAS

const std::vector<CommandShape>& commandShapes() {
  static const std::vector<CommandShape> SHAPES = [] {
    std::vector<CommandShape> shapes;
    for (const CommandRule& rule : commandRules()) {
      shapes.push_back(shapeOf(rule));
    }
    return shapes;
  }();
  return SHAPES;
}

std::vector<std::string> completions(std::string_view line, const std::vector<std::string>& phones) {
  const std::size_t lastBlank = line.find_last_of(" \t;");
  const std::size_t wordBegin = lastBlank == std::string_view::npos ? 0 : lastBlank + 1;
  const std::string begun(line.substr(wordBegin));
  const Lexing before = lex("", line.substr(0, wordBegin));
  if (!before.mistakes.empty()) {
    return {};
  }
  std::vector<Token> tokens;
  const std::size_t semicolon = line.substr(0, wordBegin).find_last_not_of(" \t");
  if (!before.statements.empty() && line[semicolon] != ';') {
    tokens = before.statements.back().tokens;
  }
  std::set<std::string> offers;
  for (const CommandShape* shape : shapesFor(tokens)) {
    if (tokens.size() < shape->verb.size()) {
      const auto& words = shape->verb[tokens.size()];
      offers.insert(words.begin(), words.end());
      continue;
    }
    const std::size_t given = operandsGiven(*shape, tokens);
    const bool isFull = given > shape->operands.size() && (shape->operands.empty() || !shape->operands.back().isMany);
    if (!isFull) {
      offerOperand(*shape, given, phones, offers);
      offerOptions(*shape, tokens, offers);
    }
  }
  std::vector<std::string> found;
  std::copy_if(offers.begin(), offers.end(), std::back_inserter(found),
               [&](const std::string& offer) { return offer.compare(0, begun.size(), begun) == 0; });
  return found;
}

}  // namespace idl::tools::scenario
