// SPDX-License-Identifier: Apache-2.0
// demo-story [--break]: tells the story in the shared-memory folder that it finds, which should be one of its own.
//
// Exit status: 0 every list was the expected one, 1 a list was not, 2 wrong usage, 3 the story could not go on.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>

#include "demo/Story.h"

namespace {

constexpr int EXIT_DIFFERENCE = 1;
constexpr int EXIT_USAGE = 2;
constexpr int EXIT_TROUBLE = 3;

/// A new folder in the system's folder for temporary files, removed at the end with all that is in it.
class TemporaryFolder {
 public:
  // mkdtemp() puts six letters of its own in the place of the X's.
  TemporaryFolder() : mPath(std::filesystem::temp_directory_path() / "demo-story-XXXXXX") {
    if (::mkdtemp(mPath.data()) == nullptr) {
      throw demo::Trouble("no temporary folder: " + std::string(std::strerror(errno)));
    }
  }
  ~TemporaryFolder() {
    std::error_code error;
    std::filesystem::remove_all(mPath, error);
    if (error) {
      std::cerr << "demo-story: " << mPath << " stays behind: " << error.message() << std::endl;
    }
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return mPath; }

 private:
  std::string mPath;
};

int tell(bool breakOneStep) {
  const TemporaryFolder saveFolder;
  demo::Story::Options options;
  options.breakOneStep = breakOneStep;
  options.colour = ::isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr;
  options.saveFolder = saveFolder.path();
  demo::Story(options).tell();
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  const bool breakOneStep = argc == 2 && std::string(argv[1]) == "--break";
  if (argc > 1 && !breakOneStep) {
    std::cerr << "usage: demo-story [--break]" << std::endl;
    return EXIT_USAGE;
  }
  ::signal(SIGPIPE, SIG_IGN);  // a program that is gone shows in what it is told
  try {
    return tell(breakOneStep);
  } catch (const demo::Difference& difference) {
    std::cerr << "demo-story: " << difference.what() << std::endl;
    return EXIT_DIFFERENCE;
  } catch (const std::exception& trouble) {
    std::cerr << "demo-story: " << trouble.what() << std::endl;
    return EXIT_TROUBLE;
  }
}
