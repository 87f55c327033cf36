// SPDX-License-Identifier: Apache-2.0
#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>

#include "LmFramework/SaveFileAccess.h"
#include "LmFramework/SaveFileAccessFactory.h"
#include "SuffixProvider.h"
#include "SuffixRecord.h"
#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/FindingOutput.h"
#include "tools/idlctl/PhoneOutput.h"
#include "tools/text/Escape.h"
#include "tools/text/JsonText.h"

namespace idl::tools {

namespace {

using LmSIntegratedDeviceListDef::DeviceInfo;

struct Options {
  std::string saveFolder;
  bool isJson = false;
  std::optional<unsigned> btid;
  bool isAll = false;
};

std::string displayed(const DeviceInfo& entry) {
  return SuffixProvider(std::vector<DeviceInfo>()).makeSuffixedName(entry);
}

nlohmann::json jsonOf(const DeviceInfo& entry) {
  nlohmann::json object;
  object["btid"] = entry.btid;
  setText(object, "name", entry.name);
  object["suffix"] = entry.suffix;
  setText(object, "displayed", displayed(entry));
  return object;
}

// The names under which more than one entry would be displayed, with these entries.
std::map<std::string, std::vector<DeviceInfo>> alike(const std::vector<DeviceInfo>& entries) {
  std::map<std::string, std::vector<DeviceInfo>> groups;
  for (const DeviceInfo& entry : entries) {
    groups[displayed(entry)].push_back(entry);
  }
  for (auto group = groups.begin(); group != groups.end();) {
    group = group->second.size() > 1 ? std::next(group) : groups.erase(group);
  }
  return groups;
}

bool cannotBeRead(const SavedTableCopy& saved, const Streams& streams) {
  if (saved.isRead() || saved.state == SavedTableCopy::State::ABSENT) {
    return false;
  }
  streams.err << "idlctl: " << quotedText(saved.path) << ": "
              << (saved.state == SavedTableCopy::State::NOT_A_FILE ? "no file" : std::strerror(saved.error)) << '\n';
  return true;
}

void sayWhere(const SavedTableCopy& saved, const Streams& streams) {
  streams.err << quotedText(saved.path) << (saved.isRead() ? "" : ": absent") << '\n';
}

int show(const Options& options, const Streams& streams) {
  const SavedTableCopy saved = copySavedTable(savedTableFolder(options.saveFolder));
  if (cannotBeRead(saved, streams)) {
    return EXIT_CANNOT_OPEN;
  }
  const std::vector<DeviceInfo> entries = savedEntries(saved);
  if (options.isJson) {
    nlohmann::json object;
    object["schema"] = JSON_SCHEMA;
    setText(object, "path", saved.path);
    object["present"] = saved.isRead();
    object["entries"] = nlohmann::json::array();
    for (const DeviceInfo& entry : entries) {
      object["entries"].push_back(jsonOf(entry));
    }
    streams.out << jsonText(object) << '\n';
    return EXIT_YES;
  }
  sayWhere(saved, streams);
  TextTable table({{"btid", Align::RIGHT}, {"Name"}, {"Suffix", Align::RIGHT}, {"Displayed"}});
  for (const DeviceInfo& entry : entries) {
    table.add({{std::to_string(entry.btid)},
               {quotedText(entry.name)},
               {std::to_string(entry.suffix)},
               {quotedText(displayed(entry))}});
  }
  streams.out << table.text(streams.colour);
  return EXIT_YES;
}

int check(const Options& options, const Streams& streams) {
  const SavedTableCopy saved = copySavedTable(savedTableFolder(options.saveFolder));
  if (cannotBeRead(saved, streams)) {
    return EXIT_CANNOT_OPEN;
  }
  const std::vector<Finding> findings = checkSaved(saved);
  const auto groups = alike(savedEntries(saved));
  if (options.isJson) {
    nlohmann::json object;
    object["schema"] = JSON_SCHEMA;
    setText(object, "path", saved.path);
    object["findings"] = jsonOf(findings);
    object["alike"] = nlohmann::json::array();
    for (const auto& [name, entries] : groups) {
      nlohmann::json group = nlohmann::json::array();
      for (const DeviceInfo& entry : entries) {
        group.push_back(jsonOf(entry));
      }
      object["alike"].push_back(group);
    }
    streams.out << jsonText(object) << '\n';
  } else {
    sayWhere(saved, streams);
    print(findings, streams.out, streams.colour);
    for (const auto& [name, entries] : groups) {
      streams.out << "displayed as " << quotedText(name) << ':';
      for (const DeviceInfo& entry : entries) {
        streams.out << " btid " << unsigned{entry.btid} << " (" << quotedText(entry.name) << ", number "
                    << unsigned{entry.suffix} << ')';
      }
      streams.out << '\n';
    }
  }
  return haveDamage(findings) ? EXIT_DAMAGED : findings.empty() ? EXIT_YES : EXIT_NO;
}

// By the file service, so that the file is replaced as a whole, keeps its mode, and survives a power cut in the middle.
bool save(const std::string& folder, const SuffixFileImage& image) {
  setenv("LM_SAVE_FILE_DIR", folder.c_str(), 1);
  const std::unique_ptr<SaveFileAccess> file(SaveFileAccessFactory::getInstance()->Create(SAVED_TABLE_FILE, "w"));
  file->FOpen();
  const bool isWritten = file->Write(image.data(), sizeof(image)) == static_cast<int>(sizeof(image)) && file->Flush();
  file->FClose();
  return isWritten;
}

int forget(const Options& options, const Streams& streams) {
  const std::string folder = savedTableFolder(options.saveFolder);
  const SavedTableCopy saved = copySavedTable(folder);
  if (cannotBeRead(saved, streams)) {
    return EXIT_CANNOT_OPEN;
  }
  SuffixFileImage image = {};
  std::size_t kept = 0;
  std::size_t forgotten = 0;
  SuffixFileImage former = {};
  std::memcpy(former.data(), saved.bytes.data(), std::min(sizeof(former), saved.bytes.size()));
  for (const SuffixRecord& record : former) {
    if (record.inUse == 0) {
      break;
    }
    if (options.isAll || record.btid == *options.btid) {
      ++forgotten;
    } else {
      image[kept++] = record;
    }
  }
  if (forgotten == 0) {
    streams.err << "idlctl: nothing to forget in " << quotedText(saved.path) << '\n';
    return EXIT_NO;
  }
  if (!save(folder, image)) {
    streams.err << "idlctl: " << quotedText(saved.path) << " could not be written\n";
    return EXIT_CANNOT_OPEN;
  }
  streams.err << forgotten << " forgotten, " << kept
              << " kept. Clients that run keep their numbers, and save them again "
              << "at their next change: it takes effect for those that start before that. Stop them first.\n";
  return EXIT_YES;
}

std::shared_ptr<Options> addCommon(Arguments& arguments) {
  auto options = std::make_shared<Options>();
  arguments.option(
      "--save-dir", options->saveFolder,
      "the folder of the saved numbers; else LM_SAVE_FILE_DIR, the system's if it exists, this user's own");
  return options;
}

}  // namespace

void addSuffixes(Arguments& arguments) {
  arguments.requireCommand();
  arguments.footer("Examples:\n  idlctl suffixes show\n  idlctl suffixes check\n  idlctl suffixes forget --btid 3");
  Arguments showing = arguments.command("show", "the entries");
  const auto showOptions = addCommon(showing);
  showing.flag("--json", showOptions->isJson, "one JSON object");
  showing.footer(
      "Exit codes:\n"
      "  0    the entries are told; none where there is no file\n"
      "  2    wrong arguments\n"
      "  3    the file cannot be read\n"
      "Example:\n  idlctl suffixes show --json");
  showing.onChosen(showOptions, show);
  Arguments checking = arguments.command("check", "what is wrong with them, and which would be displayed alike");
  const auto checkOptions = addCommon(checking);
  checking.flag("--json", checkOptions->isJson, "one JSON object");
  checking.footer(
      "Exit codes:\n"
      "  0    nothing is wrong, or there is no file\n"
      "  1    something is, but no damage\n"
      "  2    wrong arguments\n"
      "  3    the file cannot be read\n"
      "  4    damaged, or clients would forget all entries\n"
      "Example:\n  idlctl suffixes check --save-dir copied");
  checking.onChosen(checkOptions, check);
  Arguments forgetting = arguments.command("forget", "write the file without some of them");
  const auto forgetOptions = addCommon(forgetting);
  Arguments which = forgetting.exactlyOneOf("which");
  which.option("--btid", forgetOptions->btid, "the entries of that Bluetooth id").inRange(0, 255);
  which.flag("--all", forgetOptions->isAll, "every entry");
  forgetting.footer(
      "Clients read the file when they start and write it at their next change: stop them first.\n"
      "Exit codes:\n"
      "  0    forgotten\n"
      "  1    there is nothing to forget\n"
      "  2    wrong arguments\n"
      "  3    the file cannot be read or written\n"
      "Example:\n  idlctl suffixes forget --btid 3");
  forgetting.onChosen(forgetOptions, forget);
}

}  // namespace idl::tools
