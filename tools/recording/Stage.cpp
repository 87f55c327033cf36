// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/Stage.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <system_error>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "tools/inspect/Unit.h"
#include "tools/recording/OwnMounts.h"
#include "tools/recording/SavedFile.h"
#include "tools/recording/TableWriter.h"
#include "tools/scenario/Bench.h"
#include "tools/scenario/Helper.h"

namespace idl::tools::recording {

namespace {

namespace fs = std::filesystem;
using scenario::BenchEnd;
using scenario::BenchTrouble;
using scenario::Record;

enum class Request : std::uint64_t {
  BEGIN,    // is "FuncInfo" there, and its copy
  PUT,      // source, copy
  REFRESH,  // source
};

Record requestOf(Request request) { return Record().add(static_cast<std::uint64_t>(request)); }

void addCopy(Record& record, const TableCopy& copy) {
  record.add(static_cast<std::uint64_t>(copy.state)).add(copy.objectSize).add(copy.bytes);
}

TableCopy takeCopy(Record& record) {
  TableCopy copy;
  copy.state = static_cast<TableCopy::State>(record.number());
  copy.objectSize = record.number();
  copy.bytes = record.text();
  return copy;
}

void addList(Record& record, const RecordedList& list) {
  record.add(list.isStarted ? 1U : 0U).add(list.rows.size());
  for (const RecordedRow& row : list.rows) {
    record.add(static_cast<std::uint64_t>(row.header.type)).add(row.header.name).add(row.header.btid);
    record.add(static_cast<std::uint64_t>(row.header.port)).add(row.header.session).add(row.header.cpDeviceId);
    record.add(row.header.aapId).add(row.header.suffix).add(row.bt).add(row.cp).add(row.aap);
  }
}

RecordedList takeList(Record& record) {
  RecordedList list;
  list.isStarted = record.number() != 0;
  list.rows.resize(static_cast<std::size_t>(record.number()));
  for (RecordedRow& row : list.rows) {
    row.header.type = static_cast<LmSIntegratedDeviceListDef::DeviceType>(record.number());
    row.header.name = record.text();
    row.header.btid = static_cast<std::uint8_t>(record.number());
    row.header.port = static_cast<std::int32_t>(record.number());
    row.header.session = static_cast<std::uint8_t>(record.number());
    row.header.cpDeviceId = record.number();
    row.header.aapId = record.text();
    row.header.suffix = static_cast<std::uint8_t>(record.number());
    row.bt = record.text();
    row.cp = record.text();
    row.aap = record.text();
  }
  return list;
}

// The tables' own service: it and the list take turns, in one process.
class Client {
 public:
  Record obey(Record& request) {
    LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
    switch (static_cast<Request>(request.number())) {
      case Request::BEGIN:
        mWriter.putFuncInfo(takeCopy(request));
        list->initialize();
        return {};
      case Request::PUT: {
        const Source& source = *TABLES.at(static_cast<std::size_t>(request.number()));
        const TableCopy copy = takeCopy(request);
        if (isThere(copy)) {  // a client keeps what it has attached
          mWriter.put(source, copy);
        }
        return {};
      }
      case Request::REFRESH:
        break;
    }
    list->updateDeviceList(TABLES.at(static_cast<std::size_t>(request.number()))->type);
    std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> phones;
    RecordedList now;
    now.isStarted = list->getDeviceList(phones);
    for (const auto& phone : phones) {
      now.rows.push_back(rowOf(phone));
    }
    Record answer;
    addList(answer, now);
    return answer;
  }

 private:
  TableWriter mWriter;
};

void runStage(const std::string& saveFolder, const BenchEnd& end) {
  ::setenv("LM_SAVE_FILE_DIR", saveFolder.c_str(), 1);
  Client client;
  end.serve([&client](Record& request) { return client.obey(request); });
}

// With both folders in the one that nobody else has, and that is gone with the process.
void runStageApart(const SavedTableCopy& saved, const BenchEnd& end) {
  try {
    haveOwnSharedMemory();
  } catch (const std::runtime_error& wrong) {
    throw std::runtime_error(std::string(wrong.what()) +
                             "; with --here the shared-memory folder that is there is used");
  }
  const std::string folder = "/dev/shm/saved";
  fs::create_directory(folder);
  writeSaved(folder, saved);
  runStage(folder, end);
}

std::uint64_t numberOf(const Source& source) { return static_cast<std::uint64_t>(source.type); }

}  // namespace

/// A new folder for the saved numbers, with these in it; gone at the end.
class Stage::SaveFolder {
 public:
  explicit SaveFolder(const SavedTableCopy& saved) {
    std::string path = (fs::temp_directory_path() / "idl-replay-XXXXXX").string();
    if (::mkdtemp(path.data()) == nullptr) {
      throw BenchTrouble("no folder for the saved file: " + std::generic_category().message(errno));
    }
    mPath = path;
    writeSaved(mPath.string(), saved);
  }

  ~SaveFolder() {
    std::error_code ignored;  // a folder that stays behind disturbs nobody
    fs::remove_all(mPath, ignored);
  }

  SaveFolder(const SaveFolder&) = delete;
  SaveFolder& operator=(const SaveFolder&) = delete;

  std::string path() const { return mPath.string(); }

 private:
  fs::path mPath;
};

Stage::Stage(Folder folder, const TableCopy& funcInfo, const SavedTableCopy& saved)
    : mFolder(folder == Folder::OWN ? nullptr : std::make_unique<SaveFolder>(saved)),
      mHelper(std::make_unique<scenario::Helper>("replay", [this, &saved](const BenchEnd& end) {
        if (mFolder == nullptr) {
          runStageApart(saved, end);
        } else {
          runStage(mFolder->path(), end);
        }
      })) {
  Record request = requestOf(Request::BEGIN);
  addCopy(request, funcInfo);
  mHelper->ask(request);
}

Stage::~Stage() = default;

void Stage::put(const Source& source, const TableCopy& copy) {
  Record request = requestOf(Request::PUT);
  request.add(numberOf(source));
  addCopy(request, copy);
  mHelper->ask(request);
}

RecordedList Stage::refresh(const Source& source) {
  Record answer = mHelper->ask(requestOf(Request::REFRESH).add(numberOf(source)));
  return takeList(answer);
}

}  // namespace idl::tools::recording
