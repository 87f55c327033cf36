// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "tools/scenario/Bench.h"
#include "tools/scenario/Helper.h"

using idl::tools::scenario::BenchEnd;
using idl::tools::scenario::BenchTrouble;
using idl::tools::scenario::Helper;
using idl::tools::scenario::Record;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

/// Doubles numbers; refuses 0, dies of 1 and exits at 2.
void twice(const BenchEnd& end) {
  end.serve([](Record& request) {
    const std::uint64_t number = request.number();
    if (number == 0) {
      throw std::runtime_error("no zeros");
    }
    if (number == 1) {
      ::raise(SIGKILL);
    }
    if (number == 2) {
      std::exit(7);
    }
    return Record().add(2 * number).add(std::string("a\0b", 3));
  });
}

Record request(std::uint64_t number) { return Record().add(number); }

}  // namespace

TEST(ARecord, IsReadInTheOrderInWhichItWasMade) {
  Record record(Record().add(7U).add(std::string(1000, 'x')).add(std::string()).add(~std::uint64_t{0}).bytes());

  EXPECT_EQ(record.number(), 7U);
  EXPECT_EQ(record.text(), std::string(1000, 'x'));
  EXPECT_EQ(record.text(), "");
  EXPECT_EQ(record.number(), ~std::uint64_t{0});
  EXPECT_THROW(record.number(), BenchTrouble);
}

TEST(ARecord, IsRefusedWhereverItIsCut) {
  const std::string bytes = Record().add(std::string("four")).bytes();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    Record record(bytes.substr(0, length));
    EXPECT_THROW(record.text(), BenchTrouble) << length;
  }
}

TEST(AHelper, AnswersWhatItIsAsked) {
  Helper helper("helper", twice);

  for (std::uint64_t number = 3; number < 100; ++number) {
    Record answer = helper.ask(request(number));
    EXPECT_EQ(answer.number(), 2 * number);
    EXPECT_EQ(answer.text(), std::string("a\0b", 3));
  }
  helper.finish();
}

TEST(AHelper, SaysWhatItCannotDoAndGoesOn) {
  Helper helper("helper", twice);

  EXPECT_THAT([&] { helper.ask(request(0)); }, ThrowsMessage<BenchTrouble>("helper: no zeros"));
  EXPECT_EQ(helper.ask(request(3)).number(), 6U);
}

TEST(AHelper, MayDieOfARequest) {
  Helper helper("helper", twice);

  EXPECT_THAT([&] { helper.ask(request(1)); }, ThrowsMessage<BenchTrouble>("helper: has died"));
  EXPECT_THAT([&] { helper.ask(request(3)); }, ThrowsMessage<BenchTrouble>("helper: is not running"));
}

TEST(AHelper, DiesWhereThatIsAsked) {
  Helper helper("helper", twice);

  EXPECT_NO_THROW(helper.askToDie(request(1)));
}

TEST(AHelper, IsTroubleWhereItLivesOnInstead) {
  Helper helper("helper", twice);

  EXPECT_THAT([&] { helper.askToDie(request(3)); }, ThrowsMessage<BenchTrouble>("helper: lives on"));
  EXPECT_THAT([&] { helper.askToDie(request(0)); }, ThrowsMessage<BenchTrouble>("helper: no zeros"));
}

TEST(AHelper, IsTroubleWhereItEndsBadly) {
  Helper helper("helper", [](const BenchEnd&) { std::exit(7); });

  EXPECT_THAT([&] { helper.finish(); }, ThrowsMessage<BenchTrouble>(HasSubstr("did not end well")));
}

TEST(AHelperThatCannotBegin, SaysWhyWhenItIsAsked) {
  Helper helper("helper", [](const BenchEnd&) { throw std::runtime_error("no luck"); });

  EXPECT_THAT([&] { helper.ask(request(3)); }, ThrowsMessage<BenchTrouble>("helper: no luck"));
}

TEST(AHelper, HasNoDescriptorsButItsOwn) {
  const int fd = ::open("/dev/null", O_RDONLY);
  ASSERT_GT(fd, STDERR_FILENO);
  Helper first("first", twice);
  Helper second("second", [fd](const BenchEnd& end) {
    end.serve([fd](Record&) { return Record().add(::fcntl(fd, F_GETFD) == -1 ? 1U : 0U); });
  });

  EXPECT_EQ(second.ask(request(0)).number(), 1U);
  first.finish();  // which it could not if the second had a copy of its connection
  ::close(fd);
}
