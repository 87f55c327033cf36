// SPDX-License-Identifier: Apache-2.0
#include "trust/Campaign.h"

#include <getopt.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace {

constexpr unsigned MAX_PRINTED = 10;

std::int64_t timeNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::uint64_t number(const char* text) {
  char* end = nullptr;
  const unsigned long long value = std::strtoull(text, &end, 10);
  if (*text < '0' || *text > '9' || *end != '\0') {
    std::fprintf(stderr, "not a number: %s\n", text);
    std::exit(2);
  }
  return value;
}

}  // namespace

Campaign::Campaign(const char* name, const char* unit, int argc, char** argv)
    : mName(name), mUnit(unit), mSeed(std::random_device()()), mStartedNs(timeNs()) {
  const option options[] = {{"count", required_argument, nullptr, 'c'},
                            {"seconds", required_argument, nullptr, 't'},
                            {"seed", required_argument, nullptr, 's'},
                            {nullptr, 0, nullptr, 0}};
  for (int option = 0; (option = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
    switch (option) {
      case 'c':
        mCount = number(optarg);
        break;
      case 't':
        mSeconds = static_cast<unsigned>(number(optarg));
        break;
      case 's':
        mSeed = number(optarg);
        break;
      default:
        std::exit(2);
    }
  }
  if (optind != argc) {
    std::fprintf(stderr, "%s: what is %s? Options: --count N --seconds S --seed N\n", name, argv[optind]);
    std::exit(2);
  }
  std::fprintf(stderr, "%s: seed %" PRIu64 "\n", mName, mSeed);
}

void Campaign::violation(const std::string& text) {
  ++mViolations;
  complain("violation", text);
}

void Campaign::hang(const std::string& text) {
  ++mHangs;
  complain("hang", text);
}

void Campaign::crash(const std::string& text) {
  ++mCrashes;
  complain("crash", text);
}

void Campaign::complain(const char* kind, const std::string& text) {
  if (mComplaints++ < MAX_PRINTED) {
    std::fprintf(stderr, "%s: %s: %s\n", mName, kind, text.c_str());
  }
}

int Campaign::finish() const {
  std::printf("TRUST\t%s\t%" PRIu64 "\t%s\t%" PRIu64 "\t%" PRIu64 "\t%" PRIu64 "\t%.1f\t%s\n", mName, mTried, mUnit,
              mViolations, mHangs, mCrashes, static_cast<double>(timeNs() - mStartedNs) / 1e9, mNote.c_str());
  std::fflush(stdout);
  return isClean() && mTried > 0 ? 0 : 1;
}
