// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "LmFramework/SaveFileAccess.h"
#include "LmFramework/SaveFileAccessFactory.h"
#include "LmFramework/posix/SaveFileFolder.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr uid_t ROOT = 0;
constexpr uid_t SOMEBODY = 12345;  // in no user database

/// Sets a variable of the environment, or takes it away, until the end of the test.
class Variable {
 public:
  Variable(const char* name, const char* value) : mName(name) {
    const char* const before = getenv(name);
    mWasSet = before != nullptr;
    mBefore = mWasSet ? before : "";
    set(value);
  }
  ~Variable() { set(mWasSet ? mBefore.c_str() : nullptr); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  void set(const char* value) const { value != nullptr ? setenv(mName, value, 1) : unsetenv(mName); }

  const char* const mName;
  bool mWasSet;
  std::string mBefore;
};

struct TheFolder : testing::Test {
  Variable chosen{"LM_SAVE_FILE_DIR", nullptr};
  Variable state{"XDG_STATE_HOME", nullptr};
  Variable home{"HOME", nullptr};
};

TEST_F(TheFolder, IsTheOneThatTheEnvironmentNames) {
  const Variable variable("LM_SAVE_FILE_DIR", "/data/saved");

  EXPECT_EQ(saveFileFolderOf(ROOT), "/data/saved");
  EXPECT_EQ(saveFileFolderOf(SOMEBODY), "/data/saved");
}

TEST_F(TheFolder, OfRootIsTheSystemsWhateverItsHome) {
  const Variable variable("HOME", "/root");
  const Variable stateHome("XDG_STATE_HOME", "/root/state");

  EXPECT_EQ(saveFileFolderOf(ROOT), "/var/lib/lm-save-files");
}

TEST_F(TheFolder, IsNotTakenFromAnEmptyVariable) {
  const Variable variable("LM_SAVE_FILE_DIR", "");

  EXPECT_EQ(saveFileFolderOf(ROOT), "/var/lib/lm-save-files");
}

TEST_F(TheFolder, OfOthersIsInTheirStateFolder) {
  const Variable stateHome("XDG_STATE_HOME", "/home/somebody/state");
  const Variable variable("HOME", "/home/somebody");

  EXPECT_EQ(saveFileFolderOf(SOMEBODY), "/home/somebody/state/lm-save-files");
}

TEST_F(TheFolder, OfOthersIsInTheirHomeWhenTheStateFolderIsRelative) {
  const Variable stateHome("XDG_STATE_HOME", "state");
  const Variable variable("HOME", "/home/somebody");

  EXPECT_EQ(saveFileFolderOf(SOMEBODY), "/home/somebody/.local/state/lm-save-files");
}

TEST_F(TheFolder, OfOthersIsFoundThroughTheUserDatabaseWithoutAHome) {
  const passwd* user = nullptr;
  setpwent();
  while ((user = getpwent()) != nullptr && (user->pw_uid == ROOT || user->pw_dir[0] != '/')) {
  }
  ASSERT_NE(user, nullptr) << "every system has some user besides root";
  const uid_t id = user->pw_uid;
  const std::string expected = std::string(getpwuid(id)->pw_dir) + "/.local/state/lm-save-files";
  endpwent();

  EXPECT_EQ(saveFileFolderOf(id), expected);
}

TEST_F(TheFolder, IsUnknownForAUserWithoutAHome) { EXPECT_EQ(saveFileFolderOf(SOMEBODY), ""); }

struct AFactory : testing::Test {
  static std::unique_ptr<SaveFileAccess> create(const char* name, const char* mode = "r+") {
    return std::unique_ptr<SaveFileAccess>(SaveFileAccessFactory::getInstance()->Create(name, mode));
  }

  TempFolder folder;
  Variable chosen{"LM_SAVE_FILE_DIR", folder.path().c_str()};
};

TEST_F(AFactory, MakesAnAccessThatIsNotOpen) {
  const auto access = create("IDLSuffix.ini");

  ASSERT_NE(access, nullptr);
  EXPECT_FALSE(access->FClose());
  EXPECT_FALSE(access->Flush());
}

TEST_F(AFactory, MakesAnAccessThatCannotBeOpenedForAnUnusableName) {
  const std::string tooLong(241, 'n');
  for (const char* name : {static_cast<const char*>(nullptr), "", ".", "..", ".hidden", "a/b", "/etc/passwd", "../up",
                           "sub/", tooLong.c_str()}) {
    const LogCapture log;
    const auto access = create(name);

    ASSERT_NE(access, nullptr);
    EXPECT_FALSE(access->FOpen()) << (name != nullptr ? name : "(null)");
    EXPECT_FALSE(access->Flush());

    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("was not read: name: not usable")));
  }
}

TEST_F(AFactory, TakesTheLongestName) {
  const std::string name(240, 'n');
  const auto access = create(name.c_str());

  ASSERT_TRUE(access->FOpen());
  EXPECT_EQ(access->Write("x", 1), 1);
  EXPECT_TRUE(access->Flush());

  EXPECT_EQ(folder.contents(name), "x");
}

TEST_F(AFactory, LooksAtTheFolderOfTheMomentOfCreation) {
  const TempFolder other;
  const auto access = create("file");
  const Variable later("LM_SAVE_FILE_DIR", other.path().c_str());

  ASSERT_TRUE(access->FOpen());
  ASSERT_TRUE(access->Flush());

  EXPECT_TRUE(std::filesystem::exists(folder / "file"));
  EXPECT_FALSE(std::filesystem::exists(other / "file"));
}

TEST_F(AFactory, MakesReadersThatNeverWrite) {
  const LogCapture log;
  const auto access = create("file", "r");

  EXPECT_TRUE(access->FOpen());
  EXPECT_EQ(access->Write("x", 1), 1);
  EXPECT_FALSE(access->Flush());

  EXPECT_FALSE(std::filesystem::exists(folder / "file"));
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("was not saved: mode: only for reading")));
}

TEST_F(AFactory, MakesWritersForEveryOtherMode) {
  for (const char* mode : {"r+", "w", "rb+", "", static_cast<const char*>(nullptr)}) {
    const auto access = create("file", mode);

    EXPECT_TRUE(access->FOpen());
    EXPECT_TRUE(access->Flush()) << (mode != nullptr ? mode : "(null)");
  }
}

TEST_F(AFactory, MakesAnAccessThatOpensButDoesNotSaveWhereNoFolderCanBeMade) {
  const LogCapture log;
  const Variable impossible("LM_SAVE_FILE_DIR", "/proc/none/such");
  const auto access = create("file");

  EXPECT_TRUE(access->FOpen());
  EXPECT_FALSE(access->Flush());

  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("/proc/none/such/file was not saved: make folder: ")));
}

}  // namespace
