// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_RECORDINGS_RECORDINGSTEPS_H
#define TESTS_RECORDINGS_RECORDINGSTEPS_H

#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "simulator/FuncInfoPublisher.h"
#include "tools/recording/Recorder.h"
#include "tools/recording/RecordingReader.h"
#include "tools/recording/RecordingWriter.h"

/// Records what the steps do, a look after each; `saveFolder` has the saved table.
inline std::string recordingOf(const std::string& saveFolder, const std::vector<std::function<void()>>& steps) {
  std::ostringstream text;
  idl::tools::recording::RecordingWriter writer(text, {"2026-01-31T23:59:59Z", false});
  idl::tools::recording::Recorder recorder(saveFolder, [&](const auto& event) { writer.write(event); });
  for (const auto& step : steps) {
    step();
    recorder.poll();
  }
  recorder.end();
  return text.str();
}

/// All events of a recording.
inline std::vector<idl::tools::recording::Event> eventsOf(const std::string& text) {
  std::istringstream input(text);
  idl::tools::recording::RecordingReader reader(input);
  std::vector<idl::tools::recording::Event> events;
  for (idl::tools::recording::Event event; reader.next(event);) {
    events.push_back(event);
  }
  return events;
}

/// A story with everything in it that lists hang on: equal names, merged phones, tables that come, are cut and go.
inline std::vector<std::function<void()>> aDayInACar() {
  using namespace idl::bench;
  return {
      [] {
        FuncInfoPublisher().setBluetooth(true);
        BtPublisher bt;
        bt.initialise();
        bt.put(0, {3, "iPhone", "00:00:5E:00:53:01"});
        bt.put(1, {4, "iPhone", "00:00:5E:00:53:02"});
      },
      [] {
        AapPublisher aap;
        aap.initialise();
        aap.put(0, {"a", "iPhone", 1, 4, 1});
        aap.put(1, {"b", "iPhone", 0, 255, 2});
      },
      [] {
        CpPublisher cp;
        cp.initialise();
        cp.put(0, {0x20000000001, "T\xc3\xa9l\xc3\xa9phone", 3});
        cp.put(1, {9, "\xff\xfe \x1b[2J", 0, false, 4});
        cp.setCurrentPhone(0x20000000001);
      },
      [] { BtPublisher().remove("iPhone"); },
      [] {
        BtPublisher().put(5, {200, "iPhone 2", ""});
      },
      [] {
        BtPublisher().put(6, {201, "Phone", ""}, Texts::ENDLESS);
      },
      [] { AapPublisher().writeGarbage(5); },
      [] { BtPublisher().resize(300); },
      [] { BtPublisher().vanish(); },
      [] {
        BtPublisher bt;
        bt.initialise();
        bt.put(0, {4, "iPhone", ""});
      },
      [] { CpPublisher().writeGarbage(3); },
      [] { AapPublisher().initialise(); },
  };
}

/// The same lines, numbered from the first to the last.
inline std::string renumbered(const std::string& text) {
  std::istringstream input(text);
  std::string result;
  std::size_t number = 0;
  for (std::string line; std::getline(input, line);) {
    auto object = nlohmann::json::parse(line);
    object["line"] = ++number;
    result += object.dump(-1, ' ', true) + '\n';
  }
  return result;
}

/// A file of a test's own folder.
inline std::string write(const std::string& folder, const std::string& name, const std::string& text) {
  std::string path = folder + '/' + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

#endif
