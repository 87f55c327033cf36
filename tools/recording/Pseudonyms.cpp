// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/Pseudonyms.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "IntegratedDeviceList/WireFormat.h"
#include "SuffixRecord.h"
#include "tools/recording/KeyedHash.h"

namespace idl::tools::recording {

namespace {

constexpr std::size_t SALT_SIZE = 16;

// What a list appends, behind a blank. More phones of one name than all tables hold are in no list.
constexpr unsigned FIRST_APPENDED = 2;
constexpr unsigned LAST_APPENDED = 33;

constexpr unsigned LARGEST_NUMBER = 255;
constexpr std::size_t MOST_DIGITS = 3;

bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

std::size_t digitsAtEnd(std::string_view text) {
  std::size_t digits = 0;
  while (digits < text.size() && isDigit(text[text.size() - 1 - digits])) {
    ++digits;
  }
  return digits;
}

// Of digits, as a name's own number is written: 1 to 255, without zeros in front. Else 0.
unsigned numberOf(std::string_view digits) {
  if (digits.empty() || digits.size() > MOST_DIGITS || digits.front() == '0') {
    return 0;
  }
  unsigned number = 0;
  for (const char digit : digits) {
    number = number * 10 + static_cast<unsigned>(digit - '0');
  }
  return number <= LARGEST_NUMBER ? number : 0;
}

/// A name in two, the second of which stays: its own number, and one that a list may have appended. More numbers are a
/// telephone's.
struct Split {
  std::size_t end = 0;         // of the first
  bool couldHaveMore = false;  // if the first ended with a number, that would stay as well
};

Split splitName(std::string_view text) {
  const std::size_t digits = digitsAtEnd(text);
  const unsigned last = numberOf(text.substr(text.size() - digits));
  if (last == 0) {
    return {text.size(), true};
  }
  const std::size_t end = text.size() - digits;
  const bool mayBeAppended = last >= FIRST_APPENDED && last <= LAST_APPENDED && end > 0 && text[end - 1] == ' ';
  if (!mayBeAppended) {
    return {end, false};
  }
  const std::string_view before = text.substr(0, end - 1);
  const std::size_t ownDigits = digitsAtEnd(before);
  return numberOf(before.substr(before.size() - ownDigits)) == 0 ? Split{end - 1, true}
                                                                 : Split{before.size() - ownDigits, false};
}

using Class = std::vector<unsigned char>;

Class range(unsigned first, unsigned last) {
  Class members(last - first + 1);
  std::iota(members.begin(), members.end(), static_cast<unsigned char>(first));
  return members;
}

enum class Letters { ALL, HEXADECIMAL };

/// How far a text is UTF-8, byte by byte. A character that the text's end cuts off is no error.
class Utf8Progress {
 public:
  bool isWithin() const { return mLeft > 0; }
  bool isBroken() const { return mIsBroken; }

  bool goesOnWith(unsigned char byte) const { return isWithin() && byte >= mFirst && byte <= mLast; }

  /// Of the character that isWithin(): its first byte, and what the next may be.
  unsigned char lead() const { return mLead; }
  unsigned char first() const { return mFirst; }
  unsigned char last() const { return mLast; }

  void take(unsigned char byte) {
    if (mIsBroken) {
      return;
    }
    if (goesOnWith(byte)) {
      --mLeft;
      mFirst = 0x80;
      mLast = 0xBF;
    } else if (isWithin() || (byte >= 0x80 && byte < 0xC2) || byte > 0xF4) {
      mIsBroken = true;
      mLeft = 0;
    } else if (byte >= 0x80) {
      mLead = byte;
      mFirst = byte == 0xE0 ? 0xA0 : byte == 0xF0 ? 0x90 : 0x80;
      mLast = byte == 0xED ? 0x9F : byte == 0xF4 ? 0x8F : 0xBF;
      mLeft = byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : 3;
    }
  }

 private:
  bool mIsBroken = false;
  unsigned mLeft = 0;
  unsigned char mLead = 0;
  unsigned char mFirst = 0x80;
  unsigned char mLast = 0xBF;
};

// Blanks at the end may be those in front of a number: a character that was cut before them is cut at the end.
bool isBrokenUtf8(std::string_view text) {
  text = text.substr(0, text.find_last_not_of(' ') + 1);
  Utf8Progress progress;
  for (const char byte : text) {
    progress.take(static_cast<unsigned char>(byte));
  }
  return progress.isBroken();
}

/// What may stand for a byte. UTF-8 stays what it is, and what is none stays none, up to the same place: the leading
/// bytes that narrow what may follow are classes of their own. The bytes of a text in another encoding say more than
/// those of UTF-8 do, so that nothing above ASCII stays for what it is.
class Classes {
 public:
  Classes(Letters letters, bool isBroken) : mIsHexadecimal(letters == Letters::HEXADECIMAL), mIsBroken(isBroken) {}

  Class next(unsigned char byte) {
    Class members = of(byte);
    const bool goesOn = mProgress.goesOnWith(byte);
    mProgress.take(byte);
    if (!goesOn) {
      // With their next byte: signs of Latin-1, punctuation, private characters and the mark of the byte order, and
      // which plane it is.
      mStays = !mIsBroken && (byte == 0xC2 || byte == 0xE2 || byte == 0xEE || byte == 0xEF || byte == 0xF0);
    } else {
      // General punctuation, marks for the direction of writing among it, is what it was.
      mStays = mStays && byte <= 0x81 && mProgress.lead() == 0xE2;
    }
    return members;
  }

 private:
  Class of(unsigned char byte) const {
    if (byte < 0x80) {
      return ascii(byte);
    }
    if (mProgress.goesOnWith(byte)) {
      return mStays ? Class{byte} : range(mProgress.first(), mProgress.last());
    }
    if (mProgress.isBroken()) {
      return byte < 0xC0 ? range(0x80, 0xBF) : range(0xC0, 0xFF);
    }
    return mProgress.isWithin() ? breakingWithin(byte) : leading(byte);
  }

  Class ascii(unsigned char byte) const {
    if (byte >= '0' && byte <= '9') {
      return range('0', '9');
    }
    if (mIsHexadecimal && ((byte >= 'A' && byte <= 'F') || (byte >= 'a' && byte <= 'f'))) {
      return byte <= 'F' ? range('A', 'F') : range('a', 'f');
    }
    if (mIsHexadecimal && ((byte >= 'G' && byte <= 'Z') || (byte >= 'g' && byte <= 'z'))) {
      return byte <= 'Z' ? range('G', 'Z') : range('g', 'z');
    }
    if (byte >= 'A' && byte <= 'Z') {
      return range('A', 'Z');
    }
    if (byte >= 'a' && byte <= 'z') {
      return range('a', 'z');
    }
    return {byte};  // no letter
  }

  // No byte that the character could go on with.
  Class breakingWithin(unsigned char byte) const {
    Class members = byte < 0xC0 ? range(0x80, 0xBF) : range(0xC0, 0xFF);
    members.erase(std::remove_if(members.begin(), members.end(),
                                 [this](unsigned char member) { return mProgress.goesOnWith(member); }),
                  members.end());
    return members;
  }

  Class leading(unsigned char byte) const {
    if (byte < 0xC0) {
      return range(0x80, 0xBF);
    }
    if (byte < 0xC2 || byte > 0xF4) {
      Class members = range(0xF5, 0xFF);
      members.push_back(0xC0);
      members.push_back(0xC1);
      return members;
    }
    // Of two bytes the first stays: it is little more than the script.
    if (mIsBroken && byte < 0xE0) {
      return range(0xC2, 0xDF);
    }
    if (byte == 0xE1 || (byte >= 0xE3 && byte <= 0xEC) || (mIsBroken && byte != 0xE0 && byte != 0xED && byte < 0xF0)) {
      Class members = range(0xE3, 0xEC);
      members.push_back(0xE1);
      if (mIsBroken) {
        members.insert(members.end(), {0xE2, 0xEE, 0xEF});
      }
      return members;
    }
    return byte >= 0xF1 && byte <= 0xF3 ? range(0xF1, 0xF3) : Class{byte};
  }

  const bool mIsHexadecimal;
  const bool mIsBroken;  // that the text is, somewhere
  Utf8Progress mProgress;
  bool mStays = false;
};

/// A substitution that goes through a text from its begin. What stands for a byte hangs on all bytes before it: so
/// different texts differ from their first difference on, and remain the same up to there.
class Substitution {
 public:
  Substitution(const std::string& salt, const char* about)
      : mSalt(salt), mAbout(about), mBefore(KeyedHash(salt, about, "").next()) {}

  /// A member that stands for this one, in an order by chance.
  template <class Member>
  Member next(const std::vector<Member>& members, const Member& member, std::string_view bytes) {
    std::vector<Member> order = members;
    std::sort(order.begin(), order.end());
    const auto place = static_cast<std::size_t>(std::find(order.begin(), order.end(), member) - order.begin());
    KeyedHash chance(mSalt, mAbout, before());
    for (std::size_t k = order.size(); k > 1; --k) {
      std::swap(order[k - 1], order[static_cast<std::size_t>(chance.next() % k)]);
    }
    mBefore = KeyedHash(mSalt, mAbout, before() + std::string(bytes)).next();
    return order[place];
  }

 private:
  std::string before() const { return {reinterpret_cast<const char*>(&mBefore), sizeof(mBefore)}; }

  const std::string& mSalt;
  const char* const mAbout;
  std::uint64_t mBefore;  // of all bytes up to here; a chain, so that long texts take no longer for each byte
};

std::string substitute(Substitution& substitution, std::string_view text, Letters letters) {
  std::string result;
  Classes classes(letters, isBrokenUtf8(text));
  for (const char byte : text) {
    const auto value = static_cast<unsigned char>(byte);
    result += static_cast<char>(substitution.next(classes.next(value), value, {&byte, 1}));
  }
  return result;
}

std::string substitute(const std::string& salt, const char* about, std::string_view text, Letters letters) {
  Substitution substitution(salt, about);
  return substitute(substitution, text, letters);
}

// The first part of a name, at whose end no number would stay that is none now.
std::string substituteStem(const std::string& salt, std::string_view stem, bool couldHaveMore) {
  const std::size_t digits = couldHaveMore ? digitsAtEnd(stem) : 0;
  const std::size_t ordinary = digits <= MOST_DIGITS ? stem.size() - digits : stem.size();
  Substitution substitution(salt, "name");
  std::string result = substitute(substitution, stem.substr(0, ordinary), Letters::ALL);
  if (ordinary == stem.size()) {
    return result;
  }
  unsigned numbers = 1;
  for (std::size_t k = 0; k < digits; ++k) {
    numbers *= 10;
  }
  std::vector<std::string> members;
  for (unsigned number = 0; number < numbers; ++number) {
    const std::string member = std::to_string(numbers + number).substr(1);
    if (numberOf(member) == 0) {
      members.push_back(member);
    }
  }
  return result + substitution.next(members, std::string(stem.substr(ordinary)), stem.substr(ordinary));
}

// Four rounds of a Feistel network: one to one, whatever the rounds' function is.
std::uint64_t permute(const std::string& salt, std::uint64_t number) {
  auto high = static_cast<std::uint32_t>(number >> 32U);
  auto low = static_cast<std::uint32_t>(number);
  for (char round = '0'; round < '4'; ++round) {
    char half[sizeof(low)];
    std::memcpy(half, &low, sizeof(low));
    KeyedHash hash(salt, (std::string("cp") + round).c_str(), {half, sizeof(half)});
    high ^= static_cast<std::uint32_t>(hash.next());
    std::swap(high, low);
  }
  return std::uint64_t{high} << 32U | low;
}

// The text of a field, up to its end.
std::string_view textOf(const std::string& image, std::size_t at, std::size_t size) {
  return {image.data() + at, strnlen(image.data() + at, size)};
}

std::string_view ownNameOf(const RecordedRow& row) {
  switch (row.header.type) {
    case LmSIntegratedDeviceListDef::DEVICE_TYPE_BT:
      return textOf(row.bt, RowFormat::BT_NAME, RowFormat::BT_NAME_SIZE);
    case LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY:
      return textOf(row.cp, offsetof(cps_def::WCPAtom, name), sizeof(cps_def::WCPAtom::name));
    case LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP:
      break;
  }
  return textOf(row.aap, RowFormat::AAP_NAME, RowFormat::AAP_NAME_SIZE);
}

// The other name as the list displays it: the phone's own, and the number behind it if it has one.
std::string displayedName(const Pseudonyms& pseudonyms, const RecordedRow& row) {
  const std::string own(ownNameOf(row));
  const std::string number = ' ' + std::to_string(row.header.suffix);
  return row.header.name == own + number ? pseudonyms.name(own) + number : pseudonyms.name(row.header.name);
}

// As `change` makes it; zeros behind.
template <class Change>
void changeText(char* field, std::size_t size, Change change) {
  const std::string text = change(std::string_view(field, strnlen(field, size)));
  std::memset(field, 0, size);
  std::copy(text.begin(), text.end(), field);
}

template <class Change>
void changeText(std::string& image, std::size_t at, std::size_t size, Change change) {
  changeText(image.data() + at, size, change);
}

// The bytes of a table that a client reads, in a structure with zeros all around. `bytes` may be cut anywhere; what is
// cut off comes back as it was.
template <class Table, class Change>
std::string changeTable(const Source& source, const std::string& bytes, Change change) {
  std::string whole = bytes;
  whole.resize(source.segmentSize, '\0');
  Table former = {};
  std::memcpy(&former, whole.data() + source.dataOffset, sizeof(former));
  Table now = {};
  change(former, now);
  std::memset(whole.data() + sizeof(std::uint32_t), 0, source.dataOffset - sizeof(std::uint32_t));
  std::memcpy(whole.data() + source.dataOffset, &now, sizeof(now));
  whole.resize(bytes.size());
  return whole;
}

cps_def::WCPAtom changeAtom(const Pseudonyms& pseudonyms, const cps_def::WCPAtom& former) {
  cps_def::WCPAtom atom = {};
  atom.identifier = pseudonyms.cpDeviceId(former.identifier);
  std::memcpy(atom.name, former.name, sizeof(atom.name));
  changeText(atom.name, sizeof(atom.name), [&](std::string_view text) { return pseudonyms.name(text); });
  atom.btid = former.btid;
  atom.inSession = former.inSession;
  atom.session = former.session;
  atom.valid = former.valid;
  return atom;
}

std::string saltByChance() {
  std::string salt(SALT_SIZE, '\0');
  std::size_t done = 0;
  while (done < salt.size()) {
    const ssize_t count = ::getrandom(salt.data() + done, salt.size() - done, 0);
    if (count < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "no salt");
    }
    done += count < 0 ? 0 : static_cast<std::size_t>(count);
  }
  return salt;
}

}  // namespace

Pseudonyms::Pseudonyms() : mSalt(saltByChance()) {}

Pseudonyms::Pseudonyms(std::string salt) : mSalt(std::move(salt)) {}

std::string Pseudonyms::name(std::string_view text) const {
  const Split split = splitName(text);
  return substituteStem(mSalt, text.substr(0, split.end), split.couldHaveMore) + std::string(text.substr(split.end));
}

std::string Pseudonyms::address(std::string_view text) const {
  return substitute(mSalt, "address", text, Letters::HEXADECIMAL);
}

std::string Pseudonyms::aapId(std::string_view text) const { return substitute(mSalt, "aap", text, Letters::ALL); }

std::uint64_t Pseudonyms::cpDeviceId(std::uint64_t identifier) const {
  constexpr std::uint64_t USB_ATTACHED = std::uint64_t{1} << 41U;
  if (identifier == 0) {
    return 0;
  }
  // A walk along the permutation's cycle, from one that may stand there to the next: one to one among these.
  const std::uint64_t bit = identifier & USB_ATTACHED;
  do {
    identifier = permute(mSalt, identifier);
  } while (identifier == 0 || (identifier & USB_ATTACHED) != bit);
  return identifier;
}

Event Pseudonyms::event(Event event) const {
  if (event.source != nullptr) {
    event.copy.bytes = table(*event.source, event.copy.bytes);
  }
  event.saved.bytes = saved(event.saved.bytes);
  for (RecordedRow& one : event.list.rows) {
    one = row(std::move(one));
  }
  return event;
}

std::string Pseudonyms::table(const Source& source, const std::string& bytes) const {
  const auto toName = [this](std::string_view text) { return name(text); };
  const auto toAddress = [this](std::string_view text) { return address(text); };
  const auto toAapId = [this](std::string_view text) { return aapId(text); };
  if (&source == &BT_SOURCE) {
    return changeTable<wire::BtPairedDeviceList>(source, bytes, [&](const auto& former, auto& now) {
      now = former;
      for (wire::BtSlot& slot : now.slots) {
        slot.header = 0;
        std::memset(slot.padding, 0, sizeof(slot.padding));
        changeText(slot.name, sizeof(slot.name), toName);
        changeText(slot.address, sizeof(slot.address), toAddress);
      }
    });
  }
  if (&source == &AAP_SOURCE) {
    return changeTable<wire::AapDeviceList>(source, bytes, [&](const auto& former, auto& now) {
      now = former;
      for (wire::AapSlot& slot : now.slots) {
        slot.header = 0;
        changeText(slot.name, sizeof(slot.name), toName);
        changeText(slot.id, sizeof(slot.id), toAapId);
      }
    });
  }
  if (&source == &CP_SOURCE) {
    return changeTable<wire::CarPlaySharedMemStruct>(source, bytes, [&](const auto& former, auto& now) {
      now.currentPhone = cpDeviceId(former.currentPhone);
      std::transform(std::begin(former.phones), std::end(former.phones), std::begin(now.phones),
                     [this](const cps_def::WCPAtom& atom) { return changeAtom(*this, atom); });
      now.initialised = former.initialised;
    });
  }
  return changeTable<wire::FuncInfoStruct>(
      source, bytes, [](const auto& former, auto& now) { now.btFunctionFlag = former.btFunctionFlag; });
}

std::string Pseudonyms::saved(const std::string& bytes) const {
  SuffixFileImage former = {};
  std::memcpy(former.data(), bytes.data(), std::min(bytes.size(), sizeof(former)));
  SuffixFileImage now = {};
  for (std::size_t k = 0; k < former.size() && former[k].inUse != 0; ++k) {
    now[k] = former[k];
    changeText(now[k].name, sizeof(now[k].name), [this](std::string_view text) { return name(text); });
  }
  std::string result(reinterpret_cast<const char*>(now.data()), sizeof(now));
  result.resize(bytes.size(), '\0');
  return result;
}

RecordedRow Pseudonyms::row(RecordedRow row) const {
  const auto toName = [this](std::string_view text) { return name(text); };
  row.header.name = displayedName(*this, row);
  row.header.aapId = aapId(row.header.aapId);
  row.header.cpDeviceId = cpDeviceId(row.header.cpDeviceId);
  changeText(row.bt, RowFormat::BT_NAME, RowFormat::BT_NAME_SIZE, toName);
  changeText(row.bt, RowFormat::BT_ADDRESS, RowFormat::BT_ADDRESS_SIZE,
             [this](std::string_view text) { return address(text); });
  cps_def::WCPAtom atom = {};
  std::memcpy(&atom, row.cp.data(), sizeof(atom));
  atom = changeAtom(*this, atom);
  row.cp.assign(reinterpret_cast<const char*>(&atom), sizeof(atom));
  changeText(row.aap, RowFormat::AAP_NAME, RowFormat::AAP_NAME_SIZE, toName);
  changeText(row.aap, RowFormat::AAP_ID, RowFormat::AAP_ID_SIZE, [this](std::string_view text) { return aapId(text); });
  return row;
}

void NamesWithNumbers::take(const Event& event) {
  for (const RecordedRow& row : event.list.rows) {
    mNames.emplace(ownNameOf(row));
  }
}

// Numbers do not hang on the salt, so any other names will do.
std::string NamesWithNumbers::lost() const {
  const Pseudonyms pseudonyms(std::string(SALT_SIZE, '\0'));
  for (const std::string& name : mNames) {
    const std::size_t digits = digitsAtEnd(name);
    const unsigned number = numberOf(std::string_view(name).substr(name.size() - digits));
    if (number < FIRST_APPENDED || number > LAST_APPENDED || digits + 1 > name.size() ||
        name[name.size() - digits - 1] != ' ') {
      continue;
    }
    const std::string before = name.substr(0, name.size() - digits - 1);
    if (mNames.count(before) != 0 && pseudonyms.name(name) != pseudonyms.name(before) + ' ' + std::to_string(number)) {
      return name;
    }
  }
  return "";
}

}  // namespace idl::tools::recording
