// SPDX-License-Identifier: Apache-2.0
// Two listeners hear what is published while single bytes of the ring are changed, the ring is overwritten, cut and
// removed, publishers and listeners are killed and stopped, and several publish at once. Nobody ever hears what was not
// published, or hears it in another order; what is published after a disturbance is heard, within ten seconds on a
// machine however loaded; what is lost is told; and undisturbed publishers lose nothing.
//
// Seven of eight disturbances change a byte: first each of the header in use, then the others, not one after the other
// but spread over the ring, so that few cover all of it thinly. It takes 28160 disturbances to change every byte once.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/LmObserver.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "framework/SharedMemoryTesting.h"
#include "support/ChildProcess.h"
#include "trust/Campaign.h"
#include "trust/SharedFindings.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned ID = 6;
constexpr char RING[] = "/dev/shm/LmSharedMemNotifier";
constexpr std::size_t HEADER_IN_USE = 48;
constexpr std::size_t HEADER = 64;
constexpr std::size_t SLOT = 96;
constexpr unsigned SLOTS = 256;
constexpr std::size_t RING_SIZE = HEADER + SLOT * SLOTS;
constexpr std::size_t BEHIND_HEADER_IN_USE = RING_SIZE - HEADER_IN_USE;
// About the golden section of it: any few steps are spread evenly.
constexpr std::size_t STRIDE = 15199;
static_assert(std::gcd(STRIDE, BEHIND_HEADER_IN_USE) == 1, "or some bytes would never be reached");
constexpr unsigned LISTENERS = 2;
// Of those who publish at once. So few messages on their way that a listener cannot fall behind and lose some.
constexpr unsigned TOGETHER = 4;
constexpr std::uint32_t MESSAGES_OF_EACH = 1000;
constexpr std::uint32_t ON_THEIR_WAY_OF_EACH = 50;
static_assert(TOGETHER * ON_THEIR_WAY_OF_EACH < SLOTS);
constexpr auto WATCHDOG = std::chrono::seconds(15);
constexpr auto LONGEST_WAY = std::chrono::seconds(10);
constexpr auto TRY_AGAIN = std::chrono::milliseconds(200);

// Who published it and which of that one's messages it is; the rest and the length follow from these.
struct Message {
  std::uint32_t sender;
  std::uint32_t number;
  unsigned char filling[56];

  unsigned size() const { return static_cast<unsigned>(offsetof(Message, filling) + number % (sizeof filling + 1)); }
};
static_assert(sizeof(Message) == LmSharedMemNotifier::MAX_DATA_SIZE);

Message messageOf(std::uint32_t sender, std::uint32_t number) {
  Message message = {sender, number, {}};
  for (std::size_t i = 0; i < sizeof message.filling; ++i) {
    message.filling[i] = static_cast<unsigned char>(sender * 31 + number * 7 + i);
  }
  return message;
}

bool publish(LmSharedMemNotifier& notifier, std::uint32_t sender, std::uint32_t number) {
  const Message message = messageOf(sender, number);
  return notifier.Publish(ID, &message, message.size());
}

/// What a listener tells of itself.
struct Hearing {
  std::atomic<bool> listening{false};
  std::atomic<std::uint32_t> probe{0};  // the number of the newest probe heard
  std::atomic<std::uint64_t> probes{0};
  std::atomic<std::uint64_t> lost{0};  // as its log says
  // The first of those who publish at once, 0 when there were none, and the number of the newest message heard of each.
  std::atomic<std::uint32_t> firstTogether{0};
  std::atomic<std::uint32_t> together[TOGETHER] = {};
};

constexpr std::uint32_t PROBER = 1;

class Listener {
 public:
  Listener(Hearing& hearing, const SharedFindings& findings) : mHearing(hearing), mFindings(findings) {}

  [[noreturn]] void listen() {
    LmDbgOutput::setSink(&Listener::takeLine, this);
    LmSharedMemNotifier notifier(false);
    LmObserver<Listener> observer(this, &Listener::hear);
    notifier.AddObserver(&observer, &ID, 1);
    mHearing.listening = true;
    for (;;) {
      pause();
    }
  }

 private:
  unsigned hear(unsigned id, void* data, unsigned size) {
    Message message = {};
    std::memcpy(&message, data, std::min<std::size_t>(size, sizeof message));
    const Message expected = messageOf(message.sender, message.number);
    if (id != ID || size != expected.size() || std::memcmp(&message, &expected, size) != 0) {
      mFindings.add("heard what nobody published");
    }
    std::uint32_t& newest = mNewest[message.sender];
    if (message.number <= newest) {
      mFindings.add("heard message " + std::to_string(message.number) + " behind " + std::to_string(newest));
    }
    const std::uint32_t first = mHearing.firstTogether;
    const std::uint32_t among = message.sender - first;
    if (first != 0 && among < TOGETHER) {
      if (message.number != newest + 1) {
        mFindings.add("of several publishers: heard message " + std::to_string(message.number) + " next to " +
                      std::to_string(newest));
      }
      mHearing.together[among] = message.number;
    }
    newest = message.number;
    if (message.sender == PROBER) {
      ++mHearing.probes;
      mHearing.probe = message.number;
    }
    return 0;
  }

  static void takeLine(void* listener, const char* line) {
    unsigned long long lost = 0;
    const char* message = std::strstr(line, "] ");
    if (message != nullptr && std::strstr(line, "messages lost") != nullptr &&
        std::sscanf(message, "] %llu messages lost", &lost) == 1) {
      static_cast<Listener*>(listener)->mHearing.lost += lost;
    }
  }

  Hearing& mHearing;
  const SharedFindings& mFindings;
  std::map<std::uint32_t, std::uint32_t> mNewest;
};

/// Publishes without a pause, from a process of its own; its numbers begin with 1.
class Publisher {
 public:
  explicit Publisher(std::uint32_t sender)
      : mProcess([this, sender]() -> int {
          LmDbgOutput::setSink(&Publisher::takeLine, this);
          LmSharedMemNotifier notifier(false);
          for (std::uint32_t number = 1;; ++number) {
            publish(notifier, sender, number);
            mState->published = number;
          }
        }) {}

  bool reaches(std::uint32_t number) const {
    return eventually([&] { return mState->published >= number; }, WATCHDOG);
  }

  std::uint32_t published() const { return mState->published; }
  /// How often it found another one standing still.
  unsigned passedBy() const { return mState->passedBy; }
  ChildProcess& process() { return mProcess; }

 private:
  struct State {
    std::atomic<std::uint32_t> published{0};
    std::atomic<unsigned> passedBy{0};
  };

  static void takeLine(void* publisher, const char* line) {
    static_cast<Publisher*>(publisher)->mState->passedBy += std::strstr(line, "stands still") != nullptr ? 1 : 0;
  }

  const SharedValue<State> mState;
  ChildProcess mProcess;
};

class Disturbances {
 public:
  explicit Disturbances(Campaign& campaign)
      : mCampaign(campaign), mRandom(static_cast<std::mt19937::result_type>(campaign.seed())) {
    LmDbgOutput::setSink(&Disturbances::takeLine, this);
    for (unsigned i = 0; i < LISTENERS; ++i) {
      startListener(i);
    }
  }
  ~Disturbances() { LmDbgOutput::setSink(nullptr, nullptr); }
  Disturbances(const Disturbances&) = delete;
  Disturbances& operator=(const Disturbances&) = delete;

  void run() {
    probeAll("at the beginning");
    for (std::uint64_t round = 0; round < mCampaign.count() && isUnharmed(); ++round) {
      disturb(round);
      mCampaign.tried();
    }
    if (mCampaign.seconds() != 0 && isUnharmed()) {
      stopForLong();
    }
    mFindings.tell(mCampaign);
    mCampaign.note("longest way of a message " + std::to_string(mLongest.count()) + " ms, " +
                   std::to_string(mPassedBy) + " publishers stopped with the lock and passed by");
  }

 private:
  // Seven of eight change a byte of the ring; some take a second and are rare. All listeners have heard
  // everything before each and behind it.
  void disturb(std::uint64_t round) {
    if (round % 8 != 7) {
      const auto index = static_cast<std::size_t>((round - round / 8) % RING_SIZE);
      changeAByte(index < HEADER_IN_USE ? index
                                        : HEADER_IN_USE + (index - HEADER_IN_USE) * STRIDE % BEHIND_HEADER_IN_USE);
      return;
    }
    const std::uint64_t other = round / 8;
    if (other % 64 == 0) {
      removeRing();
    } else if (other % 64 == 1) {
      putAFolderInPlace();
    } else if (other % 16 == 2) {
      stopAPublisher();
    } else if (other % 16 == 3) {
      publishTogether();
    } else {
      using Disturbance = void (Disturbances::*)();
      constexpr Disturbance ALL[] = {&Disturbances::killAPublisher,
                                     &Disturbances::killAListener,
                                     &Disturbances::writeGarbage,
                                     &Disturbances::cutRing,
                                     &Disturbances::fillQueueOfAStoppedListener,
                                     &Disturbances::damageMessagesOnTheirWay};
      (this->*ALL[mRandom() % std::size(ALL)])();
    }
    probeAll("after all was quiet again", true);
  }

  // In a header byte it costs the ring, in a slot at most that slot, and here all slots have been read.
  void changeAByte(std::size_t offset) {
    const std::uint64_t lines = mMadeAnewLines;
    const std::uint64_t lost = allLost();
    const int ring = open(RING, O_RDWR | O_CLOEXEC);
    unsigned char byte = 0;  // where a ring was cut, until a message is written there
    const ssize_t got = pread(ring, &byte, 1, static_cast<off_t>(offset));
    byte = static_cast<unsigned char>(byte ^ (1 + mRandom() % 255));
    const ssize_t put = pwrite(ring, &byte, 1, static_cast<off_t>(offset));
    close(ring);
    const std::string what = "with byte " + std::to_string(offset) + " changed";
    if (got < 0 || put != 1) {
      mCampaign.violation(what + ": it could not be");
    }
    probeAll(what, true);
    if (mMadeAnewLines - lines != (offset < HEADER_IN_USE ? 1U : 0U)) {
      mCampaign.violation(what + ": " + std::to_string(mMadeAnewLines - lines) + " lines about a ring made anew");
    }
    if (allLost() != lost) {
      mCampaign.violation(what + ": messages are said to be lost");
    }
  }

  void writeGarbage() {
    const std::size_t offset = mRandom() % 2 == 0 ? 0 : mRandom() % RING_SIZE;
    std::string garbage(1 + mRandom() % (RING_SIZE - offset), '\0');
    std::generate(garbage.begin(), garbage.end(), [this] { return static_cast<char>(mRandom()); });
    const Publisher publisher(++mLastSender);
    publisher.reaches(1 + static_cast<std::uint32_t>(mRandom() % 20));
    overwrite(offset, garbage);
    probeAll("after garbage was written");
  }

  void cutRing() {
    const Publisher publisher(++mLastSender);
    publisher.reaches(1 + static_cast<std::uint32_t>(mRandom() % 20));
    for (int i = 0; i < 3; ++i) {
      if (truncate(RING, static_cast<off_t>(mRandom() % (RING_SIZE + 1))) != 0) {
        mCampaign.violation("it could not be cut");
      }
    }
    probeAll("after it was cut");
  }

  void removeRing() {
    unlink(RING);
    probeAll("after it was removed");
  }

  void putAFolderInPlace() {
    unlink(RING);
    mkdir(RING, 0755);
    if (publish(mNotifier, PROBER, ++mProbe)) {
      mCampaign.violation("published in a folder");
    }
    rmdir(RING);
    probeAll("after a folder was there");
  }

  void killAPublisher() {
    Publisher publisher(++mLastSender);
    publisher.reaches(1 + static_cast<std::uint32_t>(mRandom() % 20));
    pauseFor(std::chrono::microseconds(mRandom() % 200));
    publisher.process().signal(SIGKILL);
    publisher.process().wait();
    probeAll("after a publisher was killed");
  }

  void killAListener() {
    const auto victim = static_cast<unsigned>(mRandom() % LISTENERS);
    {
      const Publisher publisher(++mLastSender);
      publisher.reaches(5);
      pauseFor(std::chrono::microseconds(mRandom() % 200));
      mListeners[victim]->signal(SIGKILL);
      mListeners[victim]->wait();
      probe("after a listener was killed", 1 - victim, false);
    }
    startListener(victim);
    probeAll("after a listener was killed and another has come");
  }

  // What it does not hear it has to tell of, to the message.
  void fillQueueOfAStoppedListener() {
    const auto victim = static_cast<unsigned>(mRandom() % LISTENERS);
    const auto count = static_cast<unsigned>(mRandom() % (std::size_t{3} * SLOTS));
    mListeners[victim]->stop();
    const std::uint64_t heard = mHearings->at[victim].probes;
    const std::uint64_t lost = mHearings->at[victim].lost;
    publishProbes(count);
    probe("beside a stopped listener", 1 - victim, true);
    mListeners[victim]->signal(SIGCONT);
    await("after it was stopped", victim);
    const std::uint64_t published = count + 1;
    expectAccount(victim, heard, lost, published, std::min<std::uint64_t>(published, SLOTS));
  }

  void damageMessagesOnTheirWay() {
    const auto victim = static_cast<unsigned>(mRandom() % LISTENERS);
    const unsigned count = 50;
    mListeners[victim]->stop();
    const std::uint64_t heard = mHearings->at[victim].probes;
    const std::uint64_t lost = mHearings->at[victim].lost;
    const std::uint64_t first = sequence();
    publishProbes(count);
    std::vector<bool> damaged(count);
    for (int i = 0; i < 10; ++i) {
      const std::size_t which = mRandom() % count;
      damaged[which] = true;
      damageSlot((first + which) % SLOTS);
    }
    publishProbes(1);
    mListeners[victim]->signal(SIGCONT);
    await("after messages were damaged", victim);
    const auto intact = static_cast<std::uint64_t>(std::count(damaged.begin(), damaged.end(), false));
    expectAccount(victim, heard, lost, count + 1, intact + 1);
  }

  // The others go on while it is stopped, and it goes on when it is continued.
  void stopAPublisher() {
    Publisher stopped(++mLastSender);
    stopped.reaches(1 + static_cast<std::uint32_t>(mRandom() % 20));
    stopped.process().stop();
    {
      const Publisher other(++mLastSender);
      if (!other.reaches(3)) {
        mCampaign.hang("a publisher beside a stopped one");
      }
      mPassedBy += other.passedBy();
    }
    const std::uint32_t before = stopped.published();
    stopped.process().signal(SIGCONT);
    if (!stopped.reaches(before + 2)) {
      mCampaign.hang("a publisher that was stopped");
    }
    stopped.process().signal(SIGKILL);
    stopped.process().wait();
    probeAll("after a publisher was stopped");
  }

  // Without a disturbance every listener hears all, each publisher's in its order.
  void publishTogether() {
    const std::uint32_t first = mLastSender + 1;
    mLastSender += TOGETHER;
    for (Hearing& hearing : mHearings->at) {
      std::fill(std::begin(hearing.together), std::end(hearing.together), 0);
      hearing.firstTogether = first;
    }
    const std::uint64_t lost = allLost();
    const std::uint32_t found = mFindings.count();
    std::vector<std::unique_ptr<ChildProcess>> publishers;
    for (unsigned i = 0; i < TOGETHER; ++i) {
      publishers.push_back(
          std::make_unique<ChildProcess>([this, first, i] { return publishAsOneOfSeveral(first, i); }));
    }
    for (unsigned i = 0; i < TOGETHER; ++i) {
      const auto isOver = [&] { return heardByAllOf(i) == MESSAGES_OF_EACH || mFindings.count() != found; };
      if (!eventually(isOver, WATCHDOG)) {
        mCampaign.hang("messages of several publishers at once");
        break;
      }
    }
    if (allLost() != lost) {
      mCampaign.violation("of several publishers: messages are said to be lost");
    }
  }

  int publishAsOneOfSeveral(std::uint32_t first, unsigned index) const {
    LmSharedMemNotifier notifier(false);
    for (std::uint32_t number = 1; number <= MESSAGES_OF_EACH; ++number) {
      while (number - heardByAllOf(index) > ON_THEIR_WAY_OF_EACH) {
        pauseFor(std::chrono::microseconds(100));
      }
      if (!publish(notifier, first + index, number)) {
        mFindings.add("one of several publishers could not");
      }
    }
    return 0;
  }

  std::uint32_t heardByAllOf(unsigned index) const {
    std::uint32_t newest = MESSAGES_OF_EACH;
    for (const Hearing& hearing : mHearings->at) {
      newest = std::min(newest, hearing.together[index].load());
    }
    return newest;
  }

  // One of each kind stands still; between the others nothing changes.
  void stopForLong() {
    Publisher publisher(++mLastSender);
    publisher.reaches(100);
    publisher.process().stop();
    probe("beside a publisher that was stopped", 1, false);
    mListeners[0]->stop();
    const auto end = Clock::now() + std::chrono::seconds(mCampaign.seconds());
    while (Clock::now() < end && isUnharmed()) {
      probe("beside a listener and a publisher that stand still", 1, true);
      mCampaign.tried();
      pauseFor(std::chrono::milliseconds(20));
    }
    mListeners[0]->signal(SIGCONT);
    publisher.process().signal(SIGCONT);
    probe("after it has stood still for long", 0, false);
  }

  // Every message is heard or told of; `whole` of them could be heard.
  void expectAccount(unsigned listener, std::uint64_t heard, std::uint64_t lost, std::uint64_t published,
                     std::uint64_t whole) {
    const Hearing& hearing = mHearings->at[listener];
    // The line is written before the message behind the gap is delivered.
    heard = hearing.probes - heard;
    lost = hearing.lost - lost;
    if (heard != whole || heard + lost != published) {
      mCampaign.violation("of " + std::to_string(published) + " messages, " + std::to_string(whole) +
                          " of them whole, " + std::to_string(heard) + " were heard and " + std::to_string(lost) +
                          " told to be lost");
    }
  }

  void publishProbes(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      if (!publish(mNotifier, PROBER, ++mProbe)) {
        mCampaign.violation("a message could not be published");
      }
    }
  }

  void probeAll(const std::string& when, bool strictly = false) {
    publishProbes(1);
    for (unsigned listener = 0; listener < LISTENERS; ++listener) {
      await(when, listener, strictly);
    }
  }

  void probe(const std::string& when, unsigned listener, bool strictly) {
    publishProbes(1);
    await(when, listener, strictly);
  }

  // The newest probe, or, unless strictly that one, a later one is heard: others may publish so much that it is lost.
  void await(const std::string& when, unsigned listener, bool strictly = true) {
    const Hearing& hearing = mHearings->at[listener];
    const std::uint32_t first = mProbe;
    const auto start = Clock::now();
    while (!eventually([&] { return hearing.probe >= first; }, strictly ? LONGEST_WAY : TRY_AGAIN)) {
      if (Clock::now() - start > LONGEST_WAY) {
        mCampaign.hang("nothing is heard for ten seconds " + when);
        return;
      }
      publishProbes(1);
    }
    mLongest = std::max(mLongest, std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start));
    int status = 0;
    if (waitpid(mListeners[listener]->pid(), &status, WNOHANG) != 0) {
      mCampaign.crash("a listener " + when);
    }
  }

  void startListener(unsigned index) {
    mHearings->at[index].listening = false;
    mListeners[index] =
        std::make_unique<ChildProcess>([this, index]() -> int { Listener(mHearings->at[index], mFindings).listen(); });
    if (!eventually([&] { return mHearings->at[index].listening.load(); }, WATCHDOG)) {
      mCampaign.hang("a listener does not start");
    }
  }

  static void takeLine(void* self, const char* line) {
    auto* const disturbances = static_cast<Disturbances*>(self);
    disturbances->mMadeAnewLines += std::strstr(line, "made anew") != nullptr ? 1 : 0;
  }

  static void overwrite(std::size_t offset, const std::string& bytes) {
    const int ring = open(RING, O_RDWR | O_CLOEXEC);
    static_cast<void>(pwrite(ring, bytes.data(), bytes.size(), static_cast<off_t>(offset)) < 0);
    close(ring);
  }

  // The number that the next message gets.
  static std::uint64_t sequence() {
    std::uint64_t head = 0;
    const std::string ring = sharedContents("LmSharedMemNotifier");
    std::memcpy(&head, &ring.at(24), sizeof head);
    return head;
  }

  void damageSlot(std::uint64_t slot) {
    std::string garbage(SLOT, '\0');
    std::generate(garbage.begin(), garbage.end(), [this] { return static_cast<char>(mRandom()); });
    overwrite(static_cast<std::size_t>(HEADER + slot * SLOT), garbage);
  }

  std::uint64_t allLost() const {
    std::uint64_t lost = 0;
    for (const Hearing& hearing : mHearings->at) {
      lost += hearing.lost;
    }
    return lost;
  }

  bool isUnharmed() {
    mFindings.tell(mCampaign);
    return mCampaign.isClean();
  }

  struct Hearings {
    Hearing at[LISTENERS];
  };

  Campaign& mCampaign;
  std::mt19937 mRandom;
  SharedFindings mFindings;
  const SharedValue<Hearings> mHearings;
  LmSharedMemNotifier mNotifier{false};
  std::unique_ptr<ChildProcess> mListeners[LISTENERS];
  std::uint32_t mProbe = 0;
  std::uint32_t mLastSender = PROBER;
  std::uint64_t mMadeAnewLines = 0;
  std::uint64_t mPassedBy = 0;
  std::chrono::milliseconds mLongest{0};
};

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("notifier", "disturbances", argc, argv);
  Disturbances(campaign).run();
  return campaign.finish();
}
