// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/Recorder.h"

#include <utility>

#include "SuffixRecord.h"

namespace idl::tools::recording {

namespace {

// As long as it was when it was read, if it had another length when it was opened.
TableCopy asRead(TableCopy copy, const Source& source) {
  if (!copy.isRead()) {
    copy.bytes.clear();
    copy.objectSize = 0;
  } else if (copy.bytes.size() < source.segmentSize || copy.objectSize < source.segmentSize) {
    copy.objectSize = copy.bytes.size();
  }
  return copy;
}

SavedTableCopy asRead(SavedTableCopy saved) {
  if (!saved.isRead()) {
    saved.bytes.clear();
    saved.size = 0;
  } else if (saved.bytes.size() <= sizeof(SuffixFileImage)) {
    saved.size = saved.bytes.size();
  }
  return saved;
}

// A lock that is held for good is something that happened, too: who dies with it may leave the bytes as they were.
bool isReadAlike(const TableCopy& a, const TableCopy& b) {
  return a.wasLocked == b.wasLocked && (a.wasLocked || a.isSettled == b.isSettled);
}

bool isSame(const TableCopy& a, const TableCopy& b) {
  return a.state == b.state && a.objectSize == b.objectSize && a.bytes == b.bytes && (!a.isRead() || isReadAlike(a, b));
}

bool isSame(const SavedTableCopy& a, const SavedTableCopy& b) {
  return a.state == b.state && a.size == b.size && a.bytes == b.bytes;
}

}  // namespace

Recorder::Recorder(const std::string& saveFolder, Take take)
    : mFolder(savedTableFolder(saveFolder)),
      mTake(std::move(take)),
      mStart(std::chrono::steady_clock::now()),
      mList(saveFolder, this) {}

void Recorder::poll() {
  mList.poll();
  takeFuncInfo(copyTable(FUNC_INFO_SOURCE));
  takeSaved(copySavedTable(mFolder));
}

void Recorder::end() { mTake(eventOf(Event::Kind::END)); }

void Recorder::looked(const LiveList& list, const Source& source, bool wasPass) {
  if (!mHasBegun) {
    mHasBegun = true;
    takeFuncInfo(list.unit().funcInfo);
    takeSaved(list.unit().saved);
    mTake(eventOf(Event::Kind::BEGIN));
  }
  Event event = eventOf(Event::Kind::TABLE);
  event.copy = asRead(list.unit().of(source), source);
  TableCopy& last = mLast.of(source);
  if (!wasPass && isSame(event.copy, last)) {
    return;
  }
  last = event.copy;
  event.source = &source;
  event.isPass = wasPass;
  event.list.isStarted = list.isStarted();
  for (const LiveList::IntegratedDevice& phone : list.phones()) {
    event.list.rows.push_back(rowOf(phone));
  }
  mTake(event);
}

void Recorder::takeFuncInfo(const TableCopy& copy) {
  Event event = eventOf(Event::Kind::FUNC_INFO);
  event.copy = asRead(copy, FUNC_INFO_SOURCE);
  if (!isSame(event.copy, mLast.funcInfo)) {
    mLast.funcInfo = event.copy;
    event.source = &FUNC_INFO_SOURCE;
    mTake(event);
  }
}

void Recorder::takeSaved(const SavedTableCopy& saved) {
  Event event = eventOf(Event::Kind::SAVED);
  event.saved = asRead(saved);
  if (!isSame(event.saved, mLast.saved)) {
    mLast.saved = event.saved;
    mTake(event);
  }
}

Event Recorder::eventOf(Event::Kind kind) const {
  Event event;
  event.kind = kind;
  event.time = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - mStart);
  return event;
}

}  // namespace idl::tools::recording
