// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>

#include "idlctl/Invocation.h"
#include "recordings/RecordingSteps.h"
#include "support/SaveFolder.h"

namespace {

using nlohmann::json;
using testing::AnyOf;
using testing::HasSubstr;

constexpr char HEADER[] = R"({"byteOrder":"little","event":"recording","pseudonymised":false,"schema":1,)"
                          R"("sizes":{"aap":6292,"bt":1124,"cp":13736,"funcinfo":2108},"started":"","version":1})";
constexpr char BEGIN[] = R"({"event":"begin","schema":1,"timeMs":0})";
constexpr char TABLE[] =
    R"({"changed":[{"at":8,"hex":"0361"}],"event":"table","list":{"count":1,"rows":[{"aapId":"","btid":3,)"
    R"("cpDeviceId":"0","name":"a","port":0,"row":1,"session":0,"suffix":1,"type":"bt"}],"started":true},)"
    R"("pass":true,"schema":1,"size":"1124","source":"bt","state":"present","timeMs":5})";

// A line with its number, if it has none.
std::string numbered(const std::string& line, std::size_t number) {
  if (line.empty() || line.back() != '}' || line.find("\"line\":") != std::string::npos) {
    return line;
  }
  const std::string before = line.substr(0, line.size() - 1);
  return before + (before.back() == '{' ? "" : ",") + "\"line\":" + std::to_string(number) + '}';
}

class AHostileRecording : public testing::Test {
 protected:
  // The exit code of whatever reads it; all of them have to agree.
  int exitCodeOf(const std::string& text) {
    const std::string path = write(mFolder.path(), "recording", text);
    const Invocation scenario({"replay", path, "--to-scenario"});
    const Invocation copy({"record", "--from", path, "--pseudonymise"});
    EXPECT_EQ(scenario.exitCode(), copy.exitCode()) << scenario.err() << copy.err();
    mMessage = scenario.err();
    return scenario.exitCode();
  }

  int exitCodeOfLines(const std::vector<std::string>& lines) { return exitCodeOf(textOf(lines)); }

  static std::string textOf(const std::vector<std::string>& lines) {
    std::string text;
    for (std::size_t k = 0; k < lines.size(); ++k) {
      text += numbered(lines[k], k + 1) + '\n';
    }
    return text;
  }

  // The table's line with one thing changed.
  int exitCodeOfTable(const std::function<void(json&)>& change) {
    json line = json::parse(TABLE);
    change(line);
    return exitCodeOfLines({HEADER, BEGIN, line.dump()});
  }

  SaveFolder mFolder;
  std::string mMessage;
};

TEST_F(AHostileRecording, IsTakenWhereNothingIsWrong) {
  EXPECT_EQ(exitCodeOfLines({HEADER, BEGIN, TABLE}), 0);
  EXPECT_THAT(mMessage, HasSubstr("did not end it"));
}

TEST_F(AHostileRecording, IsDamagedWhereItIsNone) {
  EXPECT_EQ(exitCodeOf(""), 4);
  EXPECT_EQ(exitCodeOf("\n"), 4);
  EXPECT_EQ(exitCodeOf("garbage\n"), 4);
  EXPECT_EQ(exitCodeOf("[]\n"), 4);
  EXPECT_EQ(exitCodeOf("{}\n"), 4);
  EXPECT_EQ(exitCodeOfLines({BEGIN}), 4);
  EXPECT_EQ(exitCodeOf(std::string(5 << 20, 'x')), 4);
}

// A copy of what had been parsed took a frame of the stack for each level, and killed whoever read the line.
TEST_F(AHostileRecording, IsDamagedByWhatIsNestedWithoutEnd) {
  constexpr int LEVELS = 30000;  // 20,000 were enough
  const std::string arrays(LEVELS, '[');
  std::string objects;
  for (int k = 0; k < LEVELS; ++k) {
    objects += R"({"a":)";
  }
  const std::string wholeArrays = arrays + std::string(LEVELS, ']');
  const std::string wholeObjects = objects + '1' + std::string(LEVELS, '}');

  for (const std::string& nested : {arrays, objects, wholeArrays, wholeObjects}) {
    EXPECT_EQ(exitCodeOfLines({nested}), 4);
    EXPECT_EQ(exitCodeOfLines({R"({"schema":)" + nested + '}'}), 4);
    EXPECT_EQ(exitCodeOfLines({R"({"schema":1,"version":)" + nested + '}'}), 4);
    EXPECT_EQ(exitCodeOfLines({HEADER, R"({"schema":)" + nested + '}'}), 4);
    EXPECT_EQ(exitCodeOfLines({HEADER, BEGIN, R"({"event":"table","schema":1,"timeMs":1,"slots":)" + nested + '}'}), 4);
  }
}

TEST_F(AHostileRecording, IsDamagedByLinesWithoutASchema) {
  EXPECT_EQ(exitCodeOfLines({HEADER, R"({"event":"begin","timeMs":0})"}), 4);
  EXPECT_EQ(exitCodeOfLines({HEADER, R"({"event":"begin","schema":"1","timeMs":0})"}), 4);
  EXPECT_EQ(exitCodeOfLines({HEADER, R"({"event":"begin","schema":2,"timeMs":0})"}), 2);
}

TEST_F(AHostileRecording, MayEndWithAnEmptyLine) {
  EXPECT_EQ(exitCodeOfLines({HEADER, BEGIN, TABLE, ""}), 0);
  EXPECT_EQ(exitCodeOfLines({HEADER, BEGIN, "", TABLE}), 4);
  EXPECT_EQ(exitCodeOfLines({HEADER, BEGIN, TABLE, "", ""}), 4);
}

TEST_F(AHostileRecording, IsDamagedByTextsThatNoRecordHolds) {
  const auto withText = [this](const char* key, std::size_t length) {
    return exitCodeOfTable([key, length](json& line) { line["list"]["rows"][0][key] = std::string(length, 'x'); });
  };
  EXPECT_EQ(withText("name", 260), 0);
  EXPECT_EQ(withText("aapId", 257), 0);
  EXPECT_EQ(withText("name", 262), 4);
  EXPECT_EQ(withText("aapId", 258), 4);
  EXPECT_EQ(withText("name", 3 << 20), 4);
}

TEST_F(AHostileRecording, IsRefusedInAnotherVersion) {
  for (const char* key : {"version", "schema"}) {
    json header = json::parse(HEADER);
    header[key] = 2;
    EXPECT_EQ(exitCodeOfLines({header.dump(), BEGIN}), 2);
  }
}

TEST_F(AHostileRecording, IsDamagedByTablesOfAnotherSize) {
  json header = json::parse(HEADER);
  header["sizes"]["bt"] = 1125;
  EXPECT_EQ(exitCodeOfLines({header.dump(), BEGIN}), 4);
  header["sizes"].erase("bt");
  EXPECT_EQ(exitCodeOfLines({header.dump(), BEGIN}), 4);
}

TEST_F(AHostileRecording, IsDamagedByNumbersThatAreTooLarge) {
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["changed"][0]["at"] = 1123; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["changed"][0]["at"] = UINT64_MAX; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["changed"][0]["at"] = -1; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["changed"][0]["at"] = 1e300; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["timeMs"] = UINT64_MAX; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["size"] = "99999999999999999999"; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["list"]["count"] = UINT64_MAX; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["list"]["rows"][0]["row"] = 0; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["list"]["rows"][0]["btid"] = 256; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["list"]["rows"][0]["port"] = 2147483648U; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["list"]["rows"][0]["port"] = -2147483649L; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["list"]["rows"][0]["cpDeviceId"] = "18446744073709551616"; }), 4);
}

TEST_F(AHostileRecording, IsTakenWithAnObjectOfAnySize) {
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["size"] = "18446744073709551615"; }), 0);
}

TEST_F(AHostileRecording, IsDamagedWhereItContradictsItself) {
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["list"]["count"] = 2; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["list"]["started"] = false; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["state"] = "absent"; }), 4);
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["source"] = "funcinfo"; }), 4);
  EXPECT_EQ(exitCodeOfLines({HEADER, TABLE}), 4);
  EXPECT_EQ(exitCodeOfLines({HEADER, BEGIN, BEGIN}), 4);
  EXPECT_EQ(exitCodeOfLines({HEADER, BEGIN, TABLE, BEGIN}), 4);
  EXPECT_EQ(exitCodeOfLines({HEADER, BEGIN, R"({"event":"end","schema":1,"timeMs":1})", TABLE}), 4);
}

// Whoever checks a recording compares the lists of its passes, and would never have seen such a one.
TEST_F(AHostileRecording, IsDamagedByAListWithoutAPass) {
  EXPECT_EQ(exitCodeOfTable([](json& line) { line["pass"] = false; }), 4);
  EXPECT_THAT(mMessage, HasSubstr("a list without a pass"));
  EXPECT_EQ(exitCodeOfTable([](json& line) {
              line["pass"] = false;
              line.erase("list");
            }),
            0);
}

TEST_F(AHostileRecording, IsDamagedByALineThatWasLostOrPutIn) {
  const std::vector<std::function<void()>> day = aDayInACar();
  const std::string text = recordingOf(mFolder.path(), {day.begin(), day.begin() + 4});
  std::vector<std::string> lines;
  std::istringstream input(text);
  for (std::string line; std::getline(input, line);) {
    lines.push_back(line);
  }
  for (std::size_t k = 0; k + 1 < lines.size(); ++k) {
    std::vector<std::string> lost = lines;
    lost.erase(lost.begin() + static_cast<std::ptrdiff_t>(k));
    EXPECT_EQ(exitCodeOfLines(lost), 4) << lines[k];
    std::vector<std::string> twice = lines;
    twice.insert(twice.begin() + static_cast<std::ptrdiff_t>(k), lines[k]);
    EXPECT_EQ(exitCodeOfLines(twice), 4) << lines[k];
  }
  EXPECT_EQ(exitCodeOfLines(lines), 0);
}

TEST_F(AHostileRecording, IsDamagedByLinesWithoutANumber) {
  EXPECT_EQ(exitCodeOf(std::string(HEADER) + '\n'), 4);
  EXPECT_EQ(exitCodeOfLines({HEADER, R"({"event":"begin","line":"2","schema":1,"timeMs":0})"}), 4);
  EXPECT_EQ(exitCodeOfLines({HEADER, R"({"event":"begin","line":-2,"schema":1,"timeMs":0})"}), 4);
}

TEST_F(AHostileRecording, IsDamagedByMembersOfAnotherKind) {
  const json table = json::parse(TABLE);
  for (const auto& [key, value] : table.items()) {
    if (key == "schema") {
      continue;
    }
    for (const json& other : {json(nullptr), json(-7), json("\x01"), json::array({1}), json{{"a", 1}}}) {
      EXPECT_THAT(exitCodeOfTable([&key = key, &other](json& line) { line[key] = other; }), AnyOf(4)) << key << other;
    }
  }
}

TEST_F(AHostileRecording, NeverKillsWhoReadsItWhateverByteIsAnother) {
  const std::vector<std::function<void()>> day = aDayInACar();
  const std::string text = recordingOf(mFolder.path(), {day.begin(), day.begin() + 6});
  std::mt19937 random(11);
  for (int k = 0; k < 300; ++k) {
    std::string other = text;
    for (auto left = 1 + random() % 3; left > 0; --left) {
      other[random() % other.size()] = static_cast<char>(random() & 0xFFU);
    }
    EXPECT_THAT(exitCodeOf(other), AnyOf(0, 2, 4));
  }
}

TEST_F(AHostileRecording, IsNotThere) {
  EXPECT_EQ(Invocation({"replay", mFolder.path() / "none", "--check"}).exitCode(), 3);
  EXPECT_EQ(Invocation({"replay", mFolder.path(), "--check"}).exitCode(), 3);
}

TEST_F(AHostileRecording, IsDamagedForWhoeverChecksIt) {
  const std::string path = write(mFolder.path(), "recording", textOf({HEADER, BEGIN, "{}"}));

  EXPECT_EQ(Invocation({"replay", path, "--check"}).exitCode(), 4);
  EXPECT_EQ(Invocation({"replay", path}).exitCode(), 4);
}

}  // namespace
