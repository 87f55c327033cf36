// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/LiveList.h"

namespace idl::tools {

namespace {

LiveList::Event::Kind kindOf(ListChange::Kind kind) {
  switch (kind) {
    case ListChange::Kind::REMOVED:
      return LiveList::Event::Kind::REMOVED;
    case ListChange::Kind::ADDED:
      return LiveList::Event::Kind::ADDED;
    case ListChange::Kind::MOVED:
      return LiveList::Event::Kind::MOVED;
    case ListChange::Kind::CHANGED:
      break;
  }
  return LiveList::Event::Kind::CHANGED;
}

}  // namespace

LiveList::LiveList(const std::string& saveFolder, Listener* listener)
    : mListener(listener), mUnit(readUnit(saveFolder)), mList(awaitsBluetooth(mUnit.funcInfo), mUnit.saved, nullptr) {
  std::vector<Event> beginnings;
  for (const Source* source : TABLES) {
    const bool isPass = isThere(mUnit.of(*source));
    if (isPass) {
      refresh(*source, beginnings);
    }
    tell(*source, isPass);
  }
}

std::vector<LiveList::Event> LiveList::poll() {
  std::vector<Event> events;
  for (const Source* source : TABLES) {
    TableCopy copy = copyTable(*source);
    TableCopy& last = mUnit.of(*source);
    const bool wasThere = isThere(last);
    last = std::move(copy);
    if (isThere(last) != wasThere) {
      events.push_back({wasThere ? Event::Kind::SOURCE_LOST : Event::Kind::SOURCE_BACK, source, 0, 0, {}, {}});
    }
    const TableCopy& taken = mTaken.of(*source);
    const bool isPass = isThere(last) && (last.bytes != taken.bytes || !isThere(taken));
    if (isPass) {
      refresh(*source, events);
    }
    tell(*source, isPass);
  }
  return events;
}

void LiveList::tell(const Source& source, bool wasPass) const {
  if (mListener != nullptr) {
    mListener->looked(*this, source, wasPass);
  }
}

void LiveList::refresh(const Source& source, std::vector<Event>& events) {
  mTaken.of(source) = mUnit.of(source);
  mList.refresh(source, mUnit.of(source));
  std::vector<IntegratedDevice> former;
  former.swap(mPhones);
  mIsStarted = mList.get(mPhones);
  for (const ListChange& change : differenceOf(former, mPhones)) {
    Event event{kindOf(change.kind), &source, change.formerRow, change.row, {}, {}};
    if (change.kind != ListChange::Kind::ADDED) {
      event.former = former[change.formerRow];
    }
    if (change.kind != ListChange::Kind::REMOVED) {
      event.now = mPhones[change.row];
    }
    events.push_back(std::move(event));
  }
}

}  // namespace idl::tools
