// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

#include "idlctl/Invocation.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

namespace {

constexpr uid_t NOBODY = 65534;
constexpr char ENTERED[] = "--private=lab";

/// Entering a bench changes the process, so each invocation has one of its own.
class APrivateBench : public testing::Test {
 protected:
  void SetUp() override {
    setenv("XDG_RUNTIME_DIR", mRuntime.path().c_str(), 1);
    unsetenv("LM_SAVE_FILE_DIR");
  }

  /// Whether the invocation ends with `code` and prints `text`.
  static bool ends(const std::vector<std::string>& arguments, int code, const std::string& text = "") {
    ChildProcess child([&] {
      const Invocation invocation(arguments);
      const std::string said = invocation.out() + invocation.err();
      const bool is = invocation.exitCode() == code && said.find(text) != std::string::npos;
      if (!is) {
        std::fprintf(stderr, "%d: %s", invocation.exitCode(), said.c_str());
      }
      return is ? 0 : 1;
    });
    return child.wait() == 0;
  }

  static bool systemsIsEmpty() { return std::filesystem::is_empty("/dev/shm"); }

  TempFolder mRuntime;
};

TEST_F(APrivateBench, IsMetByWhoeverGivesItsName) {
  ChildProcess publisher([] {
    return Invocation({ENTERED, "publish", "bt", "--phone", "name=\"Phone\" id=3"}).exitCode();
  });

  EXPECT_TRUE(ends({"wait", "--name", "Phone", "--timeout", "60s", ENTERED}, 0));
  EXPECT_TRUE(ends({"--private=other", "list"}, 0, "no phones"));
  EXPECT_TRUE(ends({"list"}, 0, "no phones"));
  EXPECT_TRUE(systemsIsEmpty());
}

TEST_F(APrivateBench, StaysWithoutAnybodyInIt) {
  {
    ChildProcess publisher([] {
      return Invocation({ENTERED, "publish", "bt", "--phone", "name=\"Phone\" id=3"}).exitCode();
    });
    ASSERT_TRUE(ends({ENTERED, "wait", "--name", "Phone", "--timeout", "60s"}, 0));
  }

  EXPECT_TRUE(ends({ENTERED, "list"}, 0, "Phone"));
}

TEST_F(APrivateBench, IsWhereScenariosArePlayedAndTheirNumbersSaved) {
  const std::string scenario = mRuntime.path().string() + "/story.scn";
  std::ofstream(scenario) << "phone add anna name=A btid=3; phone add ben name=A btid=4; bt pair anna ben\n";

  EXPECT_TRUE(ends({ENTERED, "run", scenario}, 0, "all as expected"));

  EXPECT_TRUE(ends({ENTERED, "list", "--explain"}, 0, "kept from the saved table"));
  EXPECT_TRUE(ends({ENTERED, "doctor"}, 0, "Nothing is wrong."));
  EXPECT_TRUE(systemsIsEmpty());
}

TEST_F(APrivateBench, TakesProgramsIn) {
  ASSERT_TRUE(ends({ENTERED, "suffixes", "check"}, 0));
  std::ofstream(mRuntime.path().string() + "/idlctl/lab/shm/mark") << "here";

  EXPECT_TRUE(ends({ENTERED, "exec", "--", "/bin/sh", "-c", "test -e /dev/shm/mark"}, 0));
  EXPECT_TRUE(ends({ENTERED, "exec", "--", "/no/such/program"}, 3, "/no/such/program"));
  EXPECT_TRUE(ends({ENTERED, "exec"}, 2));
}

TEST_F(APrivateBench, HasANameThatIsOneFolders) {
  for (const char* name : {"../up", "a/b", ".hidden", "", "two words",
                           "0123456789012345678901234567890123456789012345678901234567890123456789"}) {
    EXPECT_TRUE(ends({"list", std::string("--private=") + name}, 2)) << name;
  }
  EXPECT_TRUE(std::filesystem::is_empty(mRuntime.path()));
}

TEST_F(APrivateBench, IsNobodyElses) {
  const std::string benches = mRuntime.path().string() + "/idlctl";
  ASSERT_EQ(mkdir(benches.c_str(), 0700), 0);
  ASSERT_EQ(chmod(benches.c_str(), 0777), 0);

  EXPECT_TRUE(ends({ENTERED, "list"}, 3, "is not a folder that this user alone may write to"));

  ASSERT_EQ(rmdir(benches.c_str()), 0);
  std::filesystem::create_directory_symlink("/tmp", benches);
  EXPECT_TRUE(ends({ENTERED, "list"}, 3, "is not a folder that this user alone may write to"));
}

/// As somebody who is not root, where this is root.
int asNobody(const std::string& folder, const std::function<int()>& body) {
  if (geteuid() == 0 && chown(folder.c_str(), NOBODY, NOBODY) != 0) {
    return 100;
  }
  ChildProcess child([&] {
    if (geteuid() == 0 && (setresgid(NOBODY, NOBODY, NOBODY) != 0 || setresuid(NOBODY, NOBODY, NOBODY) != 0)) {
      return 101;
    }
    prctl(PR_SET_DUMPABLE, 1);  // its own folder in /proc is its own again, as after exec()
    return body();
  });
  return child.wait();
}

bool mayHaveNamespaces() {
  ChildProcess child([] { return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 ? 0 : 1; });
  return child.wait() == 0;
}

TEST_F(APrivateBench, NeedsNoRoot) {
  const int end = asNobody(mRuntime.path(), [] {
    if (!mayHaveNamespaces()) {
      return 77;
    }
    ChildProcess publisher([] {
      return Invocation({ENTERED, "publish", "aap", "--phone", "name=\"Phone\" port=3"}).exitCode();
    });
    const bool isMet = ends({ENTERED, "wait", "--name", "Phone", "--timeout", "60s"}, 0) &&
                       ends({ENTERED, "doctor"}, 1, "AapDeviceList") && systemsIsEmpty();
    return isMet ? 0 : 1;
  });
  // Many containers forbid it; what a bench says there is the next test's.
  if (end == 77) {
    GTEST_SKIP() << "this kernel lets only root have namespaces";
  }
  EXPECT_EQ(end, 0);
}

bool write(const std::string& file, const std::string& text) {
  std::ofstream stream(file);
  stream << text;
  stream.close();
  return stream.good();
}

TEST_F(APrivateBench, IsRefusedWhereTheKernelForbidsIt) {
  // It is forbidden in a user namespace that has all users, so that one without rights can ask; mapping them takes
  // root.
  if (geteuid() != 0 || !mayHaveNamespaces()) {
    GTEST_SKIP() << "only root can forbid it for a test";
  }
  ASSERT_EQ(chown(mRuntime.path().c_str(), NOBODY, NOBODY), 0);
  int toChild[2];
  int toParent[2];
  ASSERT_EQ(pipe(toChild), 0);
  ASSERT_EQ(pipe(toParent), 0);
  ChildProcess child([&] {
    // A user namespace with all users, in which none may make another.
    char signal = 0;
    if (unshare(CLONE_NEWUSER) != 0 || ::write(toParent[1], &signal, 1) != 1 || read(toChild[0], &signal, 1) != 1) {
      return 100;
    }
    if (!write("/proc/sys/user/max_user_namespaces", "0") || setresgid(NOBODY, NOBODY, NOBODY) != 0 ||
        setresuid(NOBODY, NOBODY, NOBODY) != 0) {
      return 101;
    }
    return ends({ENTERED, "list"}, 3, "lets this user have no namespace") ? 0 : 1;
  });
  char signal = 0;
  ASSERT_EQ(read(toParent[0], &signal, 1), 1);
  const std::string process = "/proc/" + std::to_string(child.pid());
  ASSERT_TRUE(write(process + "/uid_map", "0 0 65536") && write(process + "/gid_map", "0 0 65536"));
  ASSERT_EQ(::write(toChild[1], &signal, 1), 1);

  EXPECT_EQ(child.wait(), 0);
}

}  // namespace
