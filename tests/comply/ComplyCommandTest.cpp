// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <thread>

#include "idlctl/FolderPicture.h"
#include "idlctl/Invocation.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "support/ChildProcess.h"
#include "support/PhoneTables.h"

namespace {

using idl::bench::AapPublisher;
using idl::bench::BtPublisher;
using idl::bench::CpPublisher;
using idl::bench::Texts;

constexpr std::chrono::milliseconds STEP{7};

// A service at work, in a process of its own, until it is killed: `change` is called over and over, with a count.
template <class Publisher>
class Service {
 public:
  using Change = std::function<void(Publisher&, unsigned)>;

  explicit Service(const Change& change) {
    Publisher().initialise();
    mProcess.emplace([change] {
      Publisher publisher;
      for (unsigned count = 0;; ++count) {
        change(publisher, count);
        std::this_thread::sleep_for(STEP);
      }
      return 0;
    });
  }

 private:
  std::optional<ChildProcess> mProcess;
};

std::string verdictOf(const nlohmann::json& report, const std::string& id) {
  for (const auto& rule : report.at("rules")) {
    if (rule.at("id") == id) {
      return rule.at("verdict");
    }
  }
  return "no such rule";
}

nlohmann::json ruleOf(const nlohmann::json& report, const std::string& id) {
  for (const auto& rule : report.at("rules")) {
    if (rule.at("id") == id) {
      return rule;
    }
  }
  return {};
}

idl::bench::BtPhone phone(unsigned count) { return {3, "Phone " + std::to_string(count), "00:00:5E:00:53:03"}; }

TEST(AServiceThatKeepsTheRules, PassesThemAll) {
  const Service<BtPublisher> service([](BtPublisher& bt, unsigned count) { bt.put(0, phone(count)); });

  const Invocation comply({"comply", "bt", "--for", "2s", "--json"});

  const nlohmann::json report = comply.json();
  EXPECT_EQ(comply.exitCode(), 0) << comply.out();
  EXPECT_EQ(verdictOf(report, "ends-texts"), "passed");
  EXPECT_EQ(verdictOf(report, "keeps-free-slots-free"), "passed");
  EXPECT_EQ(verdictOf(report, "keeps-size-word"), "passed");
  EXPECT_EQ(verdictOf(report, "uses-ids-in-range"), "passed");
  EXPECT_EQ(verdictOf(report, "notifies"), "passed");
  EXPECT_EQ(verdictOf(report, "writes-under-lock"), "passed");
}

TEST(ACarPlayServiceThatKeepsTheRules, PassesThemAll) {
  const Service<CpPublisher> service([](CpPublisher& cp, unsigned count) {
    cp.put(0, {7, "Phone " + std::to_string(count), 3});
    cp.setCurrentPhone(count % 2 == 0 ? 7 : 0);
  });

  const Invocation comply({"comply", "cp", "--for", "2s"});

  EXPECT_EQ(comply.exitCode(), 0) << comply.out();
  EXPECT_THAT(comply.out(), testing::Not(testing::HasSubstr("unknown"))) << comply.out();
}

TEST(AnAndroidAutoServiceThatKeepsTheRules, PassesThemAll) {
  const Service<AapPublisher> service([](AapPublisher& aap, unsigned count) {
    aap.put(0, {"id", "Phone " + std::to_string(count), 0, 255, 1});
  });

  const Invocation comply({"comply", "aap", "--for", "2s"});

  EXPECT_EQ(comply.exitCode(), 0) << comply.out();
  EXPECT_THAT(comply.out(), testing::Not(testing::HasSubstr("unknown"))) << comply.out();
}

TEST(AServiceThatIsIdle, IsUnknownWhereNothingWasSeen) {
  BtPublisher().initialise();

  const Invocation comply({"comply", "bt", "--for", "100ms", "--json"});

  EXPECT_EQ(comply.exitCode(), 0);
  EXPECT_EQ(verdictOf(comply.json(), "notifies"), "unknown");
  EXPECT_EQ(verdictOf(comply.json(), "writes-under-lock"), "unknown");
  EXPECT_EQ(verdictOf(comply.json(), "ends-texts"), "unknown");
}

TEST(AServiceThatWritesWithoutTheLock, IsCaught) {
  const Service<BtPublisher> service([](BtPublisher& bt, unsigned count) { bt.putUnlocked(0, phone(count)); });

  const Invocation comply({"comply", "bt", "--for", "2s", "--json"});

  EXPECT_EQ(comply.exitCode(), 1);
  EXPECT_EQ(verdictOf(comply.json(), "writes-under-lock"), "broken");
  EXPECT_EQ(verdictOf(comply.json(), "notifies"), "passed");
  const nlohmann::json offending = ruleOf(comply.json(), "writes-under-lock").at("offending");
  EXPECT_GE(offending.at("at"), BtPublisher::offsetOf(0));
  EXPECT_NE(offending.at("hex"), "");
}

TEST(AServiceWhoseLockIsNotThere, IsNeverSaidToUseIt) {
  const Service<BtPublisher> service([](BtPublisher& bt, unsigned count) {
    shm_unlink("/LmLock.BtPairedDeviceList");
    bt.putUnlocked(0, phone(count));
  });

  const Invocation comply({"comply", "bt", "--for", "500ms", "--json"});

  const std::string verdict = verdictOf(comply.json(), "writes-under-lock");
  EXPECT_NE(verdict, "passed");
  EXPECT_EQ(comply.exitCode(), verdict == "broken" ? 1 : 0) << comply.out();
}

TEST(ACarPlayServiceThatTellsNobody, IsCaught) {
  const Service<CpPublisher> service([](CpPublisher& cp, unsigned count) {
    cp.putUntold(0, {7, "Phone " + std::to_string(count), 3});
  });

  const Invocation comply({"comply", "cp", "--for", "500ms", "--json"});

  EXPECT_EQ(comply.exitCode(), 1);
  EXPECT_EQ(verdictOf(comply.json(), "notifies"), "broken");
  EXPECT_EQ(verdictOf(comply.json(), "writes-under-lock"), "passed");
}

TEST(ABluetoothServiceThatTellsNobody, IsUnknownAsLongAsNobodySaysHowItWould) {
  const Service<BtPublisher> service([](BtPublisher& bt, unsigned count) { bt.putUntold(0, phone(count)); });

  const Invocation unsaid({"comply", "bt", "--for", "100ms", "--json"});
  const Invocation said({"comply", "bt", "--for", "100ms", "--notification", "77", "--json"});

  EXPECT_EQ(unsaid.exitCode(), 0) << unsaid.out();
  EXPECT_EQ(verdictOf(unsaid.json(), "notifies"), "unknown");
  EXPECT_EQ(said.exitCode(), 1) << said.out();
  EXPECT_EQ(verdictOf(said.json(), "notifies"), "broken");
}

TEST(AServiceThatEndsNoText, IsCaughtWithTheBytes) {
  const Service<BtPublisher> service([](BtPublisher& bt, unsigned count) { bt.put(1, phone(count), Texts::ENDLESS); });

  const Invocation comply({"comply", "bt", "--for", "200ms", "--json"});

  EXPECT_EQ(comply.exitCode(), 1);
  EXPECT_EQ(verdictOf(comply.json(), "ends-texts"), "broken");
  const nlohmann::json offending = ruleOf(comply.json(), "ends-texts").at("offending");
  EXPECT_EQ(offending.at("at"), BtPublisher::offsetOf(1) + 5);
  EXPECT_EQ(offending.at("hex").get<std::string>().substr(0, 10), "50686f6e65");
}

TEST(AServiceThatFreesSlotsWithZeros, IsCaught) {
  const Service<BtPublisher> service([](BtPublisher& bt, unsigned) {
    bt.writeRaw(BtPublisher::offsetOf(0), std::string(BtPublisher::SLOT_SIZE, '\0'));
  });

  const Invocation comply({"comply", "bt", "--for", "200ms", "--json"});

  EXPECT_EQ(comply.exitCode(), 1);
  EXPECT_EQ(verdictOf(comply.json(), "keeps-free-slots-free"), "broken");
}

// Whoever attaches the table first makes it of zeros; its service had been blamed for phones that it never wrote, and
// praised for the size word.
TEST(ATableThatNobodyHasWrittenYet, IsUnknown) {
  BtTable bt;
  bt.put(4, std::string(1120, '\0'));
  AapTable aap;
  aap.put(4, std::string(6288, '\0'));
  CpPublisher().initialise();  // the defaults, as a client writes them, too

  for (const char* source : {"bt", "cp", "aap"}) {
    const Invocation comply({"comply", source, "--for", "200ms", "--json"});

    EXPECT_EQ(comply.exitCode(), 0) << comply.out();
    const nlohmann::json said = comply.json();
    for (const auto& rule : said.at("rules")) {
      EXPECT_EQ(rule.at("verdict"), "unknown") << rule;
    }
    EXPECT_EQ(ruleOf(comply.json(), "ends-texts").at("why"), "Nobody has written the table yet.");
    EXPECT_EQ(ruleOf(comply.json(), "keeps-size-word").at("why"), "Nobody has written the table yet.");
  }
  removePhoneTables();
}

TEST(ATableThatNobodyHasWrittenYet, IsBrokenWhereItIsTooShort) {
  AapTable aap;
  aap.put(4, std::string(6288, '\0'));
  aap.resize(600);

  const Invocation comply({"comply", "aap", "--for", "200ms", "--json"});

  EXPECT_EQ(comply.exitCode(), 1) << comply.out();
  EXPECT_EQ(verdictOf(comply.json(), "keeps-size-word"), "broken");
  EXPECT_EQ(verdictOf(comply.json(), "keeps-free-slots-free"), "unknown");
  removePhoneTables();
}

TEST(ACarPlayServiceThatFreesSlotsByHalf, IsCaught) {
  const Service<CpPublisher> service([](CpPublisher& cp, unsigned) { cp.put(1, {0, "Phone", 3}); });

  const Invocation comply({"comply", "cp", "--for", "200ms", "--json"});

  EXPECT_EQ(comply.exitCode(), 1) << comply.out();
  EXPECT_EQ(verdictOf(comply.json(), "keeps-free-slots-free"), "broken");
}

TEST(AnAndroidAutoServiceThatFreesSlotsByHalf, IsCaught) {
  const Service<AapPublisher> service([](AapPublisher& aap, unsigned) { aap.put(1, {"", "Phone", 0, 3, 1}); });

  const Invocation comply({"comply", "aap", "--for", "200ms", "--json"});

  EXPECT_EQ(comply.exitCode(), 1) << comply.out();
  EXPECT_EQ(verdictOf(comply.json(), "keeps-free-slots-free"), "broken");
}

TEST(AServiceThatWritesNothingButZeros, IsCaught) {
  const Service<BtPublisher> service([](BtPublisher& bt, unsigned) {
    bt.writeRaw(BtPublisher::offsetOf(0), std::string(BtPublisher::SLOT_COUNT * BtPublisher::SLOT_SIZE, '\0'));
  });

  const Invocation comply({"comply", "bt", "--for", "300ms", "--json"});

  EXPECT_EQ(comply.exitCode(), 1);
  EXPECT_EQ(verdictOf(comply.json(), "keeps-free-slots-free"), "broken");
}

TEST(AServiceThatSpoilsTheSizeWord, IsCaught) {
  const Service<AapPublisher> service([](AapPublisher& aap, unsigned) { aap.writeRaw(0, "spam"); });

  const Invocation comply({"comply", "aap", "--for", "200ms"});

  EXPECT_EQ(comply.exitCode(), 1);
  EXPECT_THAT(comply.out(), testing::HasSubstr("broken   keeps the size word")) << comply.out();
  EXPECT_THAT(comply.out(), testing::HasSubstr("at 0: 7370616d")) << comply.out();
}

TEST(AServiceThatUsesAnIdTwice, IsCaught) {
  const Service<BtPublisher> service([](BtPublisher& bt, unsigned count) {
    bt.put(0, phone(count));
    bt.put(1, phone(count));
  });

  const Invocation comply({"comply", "bt", "--for", "200ms", "--json"});

  EXPECT_EQ(comply.exitCode(), 1);
  EXPECT_EQ(verdictOf(comply.json(), "uses-ids-in-range"), "broken");
}

TEST(Comply, SaysThatATableWasNeverThere) {
  const Invocation comply({"comply", "aap", "--for", "50ms"});

  EXPECT_EQ(comply.exitCode(), 3);
  EXPECT_EQ(comply.out(), "");
}

TEST(Comply, ChangesNothingInAUnitThatIsIdle) {
  BtPublisher bt;
  bt.initialise();
  bt.put(0, phone(1));
  const auto before = pictureOf("/dev/shm");

  const Invocation comply({"comply", "bt", "--for", "50ms"});

  EXPECT_EQ(comply.exitCode(), 0) << comply.out() << comply.err();
  EXPECT_EQ(pictureOf("/dev/shm"), before);
}

TEST(Comply, SaysThatItCouldNotTell) {
  BtPublisher().initialise();
  for (const char* how : {"--json", "--notification=7"}) {
    std::ofstream full("/dev/full");
    std::ostringstream err;

    EXPECT_EQ(idl::tools::idlctl({"comply", "bt", "--for", "20ms", how}, {full, err, false}), 3);
    EXPECT_THAT(err.str(), testing::HasSubstr("standard output could not be written to its end"));
  }
}

TEST(Comply, RefusesWhatItDoesNotKnow) {
  EXPECT_EQ(Invocation({"comply"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"comply", "funcinfo"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"comply", "bt", "--for", "5"}).exitCode(), 2);
}

}  // namespace
