// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/ClientHelper.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/LmObserver.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "simulator/BenchNotification.h"

namespace idl::tools::scenario {

namespace {

using LmSIntegratedDeviceListDef::DeviceType;
using LmSIntegratedDeviceListDef::IntegratedDevice;

// By source.
constexpr std::array<unsigned, SOURCES.size()> NOTIFICATIONS = {
    bench::BT_NOTIFICATION_ID, wire::CARPLAY_NOTIFICATION_ID, bench::AAP_NOTIFICATION_ID};

/// How many changes each source has told of.
using Counts = std::array<std::uint64_t, SOURCES.size()>;

/// Counts on the notifier's delivery thread what the main thread, which alone refreshes, has to look after.
class Listener {
 public:
  Listener() : mNotifier(false), mObserver(this, &Listener::update) {
    if (::pipe2(mWake.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
      throw std::runtime_error("no pipe");
    }
    if (!mNotifier.AddObserver(&mObserver, NOTIFICATIONS.data(), static_cast<unsigned>(NOTIFICATIONS.size()))) {
      closeBoth();
      throw std::runtime_error("no notifications");
    }
  }

  ~Listener() {
    mNotifier.RemoveObserver(&mObserver);
    closeBoth();
  }

  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  /// Becomes readable when there is something new.
  int wakeFd() const { return mWake[0]; }

  Counts counts() {
    char bytes[64];
    while (::read(mWake[0], bytes, sizeof(bytes)) > 0) {
    }
    const std::lock_guard<std::mutex> guard(mMutex);
    return mCounts;
  }

 private:
  unsigned update(unsigned id, void* /*data*/, unsigned /*size*/) {
    {
      const std::lock_guard<std::mutex> guard(mMutex);
      for (std::size_t i = 0; i < NOTIFICATIONS.size(); ++i) {
        mCounts.at(i) += NOTIFICATIONS.at(i) == id ? 1U : 0U;
      }
    }
    // A full pipe is as good: the main thread has been woken then.
    [[maybe_unused]] const ssize_t ignored = ::write(mWake[1], "", 1);
    return 0;
  }

  void closeBoth() const {
    ::close(mWake[0]);
    ::close(mWake[1]);
  }

  std::array<int, 2> mWake = {-1, -1};
  std::mutex mMutex;
  Counts mCounts = {};  // guarded by mMutex
  LmSharedMemNotifier mNotifier;
  LmObserver<Listener> mObserver;
};

std::string numberFirst(const std::string& name, unsigned char suffix) { return std::to_string(suffix) + ". " + name; }

std::string same(const std::string& name, unsigned char /*suffix*/) { return name; }

template <std::size_t SIZE>
std::string textIn(const char (&field)[SIZE]) {
  return {field, ::strnlen(field, SIZE)};
}

std::string ownName(const IntegratedDevice& phone) {
  switch (phone.type) {
    case LmSIntegratedDeviceListDef::DEVICE_TYPE_BT:
      return textIn(phone.btDevice.name);
    case LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY:
      return textIn(phone.cpDevice.name);
    case LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP:
      break;
  }
  return textIn(phone.aapDevice.name);
}

Record listRecord() {
  Record record;
  std::vector<IntegratedDevice> phones;
  const bool isStarted = LmSIntegratedDeviceList::getInstance()->getDeviceList(phones);
  record.add(isStarted ? 1U : 0U).add(phones.size());
  for (const IntegratedDevice& phone : phones) {
    record.add(static_cast<std::uint64_t>(phone.type)).add(phone.name).add(ownName(phone)).add(phone.btid);
    record.add(static_cast<std::uint64_t>(phone.port)).add(phone.session).add(phone.suffix);
    record.add(phone.cpDeviceId).add(phone.aapId);
  }
  return record;
}

class Client {
 public:
  Client(const ClientOptions& options, const BenchEnd& end) : mFollow(options.follow), mEnd(end) {
    LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
    if (options.format != NameFormat::PLAIN) {
      list->setFormat(options.format == NameFormat::SAME ? same : numberFirst);
    }
    list->initialize();
    for (const Source source : SOURCES) {
      if (options.refreshes) {
        refresh(source);
      }
    }
  }

  void serve() {
    for (;;) {
      if (awaitSomething()) {
        auto request = mEnd.receive();
        if (!request) {
          return;
        }
        mEnd.answerOne(*request, [this](Record& asked) { return obey(asked); });
      }
      follow();
    }
  }

 private:
  static void refresh(Source source) {
    LmSIntegratedDeviceList::getInstance()->updateDeviceList(static_cast<DeviceType>(source));
  }

  void follow() {
    const Counts counts = mListener.counts();
    for (const Source source : SOURCES) {
      const auto i = static_cast<std::size_t>(source);
      if (mFollow && counts.at(i) != mHandled.at(i)) {
        refresh(source);
      }
    }
    mHandled = counts;
  }

  /// @return whether it is a request, or that there will be none; else it is a change.
  bool awaitSomething() const {
    std::array<pollfd, 2> ready = {{{mEnd.fd(), POLLIN, 0}, {mListener.wakeFd(), POLLIN, 0}}};
    while (::poll(ready.data(), ready.size(), -1) < 0) {
      if (errno != EINTR) {
        throw std::runtime_error("poll");
      }
    }
    return ready[0].revents != 0;
  }

  void awaitChange() const {
    pollfd ready = {mListener.wakeFd(), POLLIN, 0};
    while (::poll(&ready, 1, -1) < 0) {
      if (errno != EINTR) {
        throw std::runtime_error("poll");
      }
    }
  }

  Record obey(Record& request) {
    const auto kind = static_cast<ClientRequest>(request.number());
    if (kind == ClientRequest::LIST) {
      return listRecord();
    }
    const auto source = static_cast<std::size_t>(request.number());
    if (kind == ClientRequest::REFRESH) {
      refresh(SOURCES.at(source));
      return {};
    }
    // The bench gives up when this takes too long.
    const std::uint64_t count = request.number();
    for (follow(); mHandled.at(source) < count; follow()) {
      awaitChange();
    }
    return {};
  }

  const bool mFollow;
  const BenchEnd& mEnd;
  Listener mListener;  // before the first look, so that no change falls between the two
  Counts mHandled = {};
};

}  // namespace

void runClient(const ClientOptions& options, const std::string& saveFolder, const BenchEnd& end) {
  ::setenv("LM_SAVE_FILE_DIR", saveFolder.c_str(), 1);
  Client client(options, end);
  Record begun;
  end.answerOne(begun, [](Record&) { return Record(); });
  client.serve();
}

MaybeList takeList(Record& answer) {
  const bool isStarted = answer.number() != 0;
  std::vector<Row> rows(static_cast<std::size_t>(answer.number()));
  for (Row& row : rows) {
    row.type = SOURCES.at(static_cast<std::size_t>(answer.number()));
    row.name = answer.text();
    row.own = answer.text();
    row.btid = static_cast<std::uint8_t>(answer.number());
    row.port = static_cast<std::int32_t>(answer.number());
    row.session = static_cast<std::uint8_t>(answer.number());
    row.suffix = static_cast<std::uint8_t>(answer.number());
    row.cpId = answer.number();
    row.aapId = answer.text();
  }
  return isStarted ? MaybeList(rows) : std::nullopt;
}

}  // namespace idl::tools::scenario
