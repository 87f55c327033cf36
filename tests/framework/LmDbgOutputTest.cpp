// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <future>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "LmFramework/LmDbgOutput.h"
#include "support/CapturedStdErr.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

namespace {

static_assert(!std::is_default_constructible_v<LmDbgOutput>);

using testing::ElementsAre;
using namespace std::string_literals;

TEST(TheLog, GoesToStandardErrorAtFirst) {
  const CapturedStdErr captured;

  LmDbgOutput::DbgPrint("src/Clock", "setTime", 12, 1, "%s is %d\n", "it", 5);

  EXPECT_EQ(captured.text(), "src/Clock:12 setTime [1] it is 5\n");
}

TEST(TheLog, PrintsToStandardErrorWithoutATag) {
  const CapturedStdErr captured;

  LmDbgOutput::DbgPrintStdErr("src/Clock", "setTime", 12, "%d%%\n", 5);

  EXPECT_EQ(captured.text(), "src/Clock:12 setTime 5%\n");
}

TEST(TheLog, EndsALineThatHasNoEnd) {
  const CapturedStdErr captured;

  LmDbgOutput::DbgPrint("f", "g", 1, 2, "no end");
  LmDbgOutput::DbgPrint("f", "g", 1, 2, "%s", "");

  EXPECT_THAT(captured.lines(), ElementsAre("f:1 g [2] no end", "f:1 g [2] "));
}

TEST(TheLog, ShowsControlCharactersAsQuestionMarks) {
  const LogCapture log;

  LmDbgOutput::DbgPrint("f", "g", 1, 1, "%s\n", "a\nb\rc\td\x1b[1me\x7f");
  LmDbgOutput::DbgPrint("f", "g", 1, 1, "two ends\n\n");
  LmDbgOutput::DbgPrint("f", "g", 1, 1, "%s",
                        "\xC2\x9B"
                        "1m");

  EXPECT_THAT(log.lines(), ElementsAre("f:1 g [1] a?b?c?d?[1me?", "f:1 g [1] two ends?", "f:1 g [1] ??1m"));
}

TEST(TheLog, KeepsTextsInOtherAlphabets) {
  const LogCapture log;

  LmDbgOutput::DbgPrint("f", "g", 1, 1, "%s", "M\xC3\xBCller \xC2\xA0 \xE6\x97\xA5");

  EXPECT_THAT(log.lines(), ElementsAre("f:1 g [1] M\xC3\xBCller \xC2\xA0 \xE6\x97\xA5"));
}

TEST(TheLog, CutsALineAtItsLongestLength) {
  constexpr std::size_t LONGEST = 1023;
  const std::string head = "f:1 g [1] ";
  for (std::size_t length = LONGEST - 2; length < LONGEST + 3; ++length) {
    const LogCapture log;
    const std::string text(length - head.size(), 'x');

    LmDbgOutput::DbgPrint("f", "g", 1, 1, "%s\n", text.c_str());

    EXPECT_THAT(log.lines(), ElementsAre((head + text).substr(0, LONGEST))) << length;
  }
}

TEST(TheLog, CutsALineWhoseFileIsTooLongAlready) {
  const CapturedStdErr captured;

  LmDbgOutput::DbgPrint(std::string(5000, 'f').c_str(), "g", 1, 1, "text\n");

  EXPECT_EQ(captured.text(), std::string(1023, 'f') + "\n");
}

TEST(TheLog, TakesNullForAnUnknownFileOrFunction) {
  const LogCapture log;

  LmDbgOutput::DbgPrint(nullptr, nullptr, 1, 1, "text\n");

  EXPECT_THAT(log.lines(), ElementsAre("?:1 ? [1] text"));
}

TEST(TheLog, KeepsErrno) {
  const LogCapture log;
  errno = ENOENT;

  LmDbgOutput::DbgPrint("f", "g", 1, 1, "%s\n", "text");

  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(log.lines(), ElementsAre("f:1 g [1] text"));
}

TEST(TheLog, KeepsErrnoWhenStandardErrorIsClosed) {
  const int saved = dup(STDERR_FILENO);
  close(STDERR_FILENO);
  errno = EPIPE;

  LmDbgOutput::DbgPrintStdErr("f", "g", 1, "lost\n");

  const int error = errno;
  dup2(saved, STDERR_FILENO);
  close(saved);
  EXPECT_EQ(error, EPIPE);
}

TEST(ALogWithASink, GivesItEachLineWithoutItsNewline) {
  const CapturedStdErr captured;
  const LogCapture log;

  LmDbgOutput::DbgPrint("f", "g", 1, 1, "one\n");
  LmDbgOutput::DbgPrint("f", "g", 2, 1, "two\n");

  EXPECT_THAT(log.lines(), ElementsAre("f:1 g [1] one", "f:2 g [1] two"));
  EXPECT_EQ(captured.text(), "");
}

TEST(ALogWithASink, StillPrintsToStandardErrorWhatBelongsThere) {
  const CapturedStdErr captured;
  const LogCapture log;

  LmDbgOutput::DbgPrintStdErr("f", "g", 1, "text\n");

  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(captured.text(), "f:1 g text\n");
}

TEST(ALogWithASink, GoesToStandardErrorWhenItIsTakenAway) {
  const CapturedStdErr captured;
  { const LogCapture log; }

  LmDbgOutput::DbgPrint("f", "g", 1, 1, "text\n");

  EXPECT_EQ(captured.text(), "f:1 g [1] text\n");
}

TEST(ALogWithASink, IsOutOfTheOldSinkWhenItIsReplaced) {
  struct SlowSink {
    std::promise<void> entered;
    std::promise<void> leave;
    std::atomic<bool> inside{false};
    static void take(void* context, const char*) {
      auto* sink = static_cast<SlowSink*>(context);
      sink->inside = true;
      sink->entered.set_value();
      sink->leave.get_future().wait();
      sink->inside = false;
    }
  } sink;
  LmDbgOutput::setSink(&SlowSink::take, &sink);
  auto printer = std::async(std::launch::async, [] { LmDbgOutput::DbgPrint("f", "g", 1, 1, "text\n"); });
  sink.entered.get_future().wait();

  auto replacer = std::async(std::launch::async, [&] {
    LmDbgOutput::setSink(nullptr, nullptr);
    return sink.inside.load();
  });
  EXPECT_EQ(replacer.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  sink.leave.set_value();

  EXPECT_FALSE(replacer.get());
  printer.get();
}

TEST(ALogForSyslog, LeavesStandardErrorAlone) {
  const CapturedStdErr captured;
  LmDbgOutput::useSyslog();

  LmDbgOutput::DbgPrint("f", "g", 1, 1, "to syslog\n");

  LmDbgOutput::setSink(nullptr, nullptr);
  EXPECT_EQ(captured.text(), "");
}

TEST(ALogForSyslog, GivesItEachLineAsItIs) {
  const CapturedStdErr captured;

  ChildProcess child([] {
    openlog("unit", LOG_PERROR, LOG_USER);  // shows on standard error what syslog() is given
    LmDbgOutput::useSyslog();
    LmDbgOutput::DbgPrint("f", "g", 1, 1, "50 %%, %s\n", "%s");
    return 0;
  });

  EXPECT_EQ(child.wait(), 0);
  EXPECT_THAT(captured.lines(), ElementsAre("unit: f:1 g [1] 50 %, %s"));
}

TEST(ManyThreads, NeverMixTheirLines) {
  constexpr int THREADS = 8;
  constexpr int LINES = 200;
  const CapturedStdErr captured;
  std::vector<std::thread> threads;
  threads.reserve(THREADS);

  for (int i = 0; i < THREADS; ++i) {
    threads.emplace_back([i] {
      const std::string text(500, static_cast<char>('a' + i));
      for (int line = 0; line < LINES; ++line) {
        if (line % 2 == 0) {
          LmDbgOutput::DbgPrint("f", "g", 1, 1, "%s\n", text.c_str());
        } else {
          LmDbgOutput::DbgPrintStdErr("f", "g", 1, "[1] %s\n", text.c_str());
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  std::vector<int> seen(THREADS, 0);
  for (const std::string& line : captured.lines()) {
    const int thread = line.back() - 'a';
    ASSERT_TRUE(thread >= 0 && thread < THREADS) << line;
    ASSERT_EQ(line, "f:1 g [1] " + std::string(500, line.back()));
    ++seen[static_cast<std::size_t>(thread)];
  }
  EXPECT_EQ(seen, std::vector<int>(THREADS, LINES));
}

TEST(ManyThreads, DoNotHangTheLogOfAForkedChild) {
  constexpr int CHILDREN = 50;
  const CapturedStdErr captured;
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      while (!stop) {
        LmDbgOutput::DbgPrint("f", "g", 1, 1, "parent\n");
      }
    });
  }

  std::vector<int> ends;
  for (int i = 0; i < CHILDREN; ++i) {
    ChildProcess child([] {
      LmDbgOutput::DbgPrint("f", "g", 1, 1, "child\n");
      return 0;
    });
    ends.push_back(child.wait(std::chrono::seconds(20)));
  }
  stop = true;
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(ends, std::vector<int>(CHILDREN, 0));
}

TEST(AnExitingProcess, CanPrintFromADestructorOfAStaticObject) {
  const CapturedStdErr captured;

  ChildProcess child(
      [] {
        static struct Last {
          ~Last() { LmDbgOutput::DbgPrint("f", "g", 1, 1, "last words\n"); }
        } last;
        return 0;
      },
      ChildProcess::End::EXIT);

  EXPECT_EQ(child.wait(), 0);
  EXPECT_THAT(captured.lines(), testing::Contains("f:1 g [1] last words"));
}

}  // namespace
