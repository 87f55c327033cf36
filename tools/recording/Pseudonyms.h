// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_PSEUDONYMS_H
#define TOOLS_RECORDING_PSEUDONYMS_H

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "tools/recording/Recording.h"

namespace idl::tools::recording {

/// Puts other names, addresses and identifiers in the place of a recording's own, the same ones for the same salt.
///
/// Each is replaced by one of its length, byte by byte by one of its class: capital letter, small letter, digit, and
/// the leading and following bytes of other characters. Blanks, punctuation, control characters and the first of two
/// bytes stay; of a text that is no UTF-8, nothing above ASCII does. No two different ones become equal, and equal
/// beginnings stay equal ones, so that a name that was cut is still the beginning of the whole one, unless at a number
/// or before what is no UTF-8. Of a name, a number from 1 to 255 at its end stays, and one that a list may have
/// appended to it: whatever merging and numbering make of the tables is the same. All other digits, such as those of a
/// telephone's number, become others.
///
/// What no client reads is made zeros: all that stands behind the end of a text, and the bytes that are the services'
/// own.
class Pseudonyms {
 public:
  /// A salt by chance, from the kernel, which dies with this object. @throw std::runtime_error when there is none
  Pseudonyms();

  explicit Pseudonyms(std::string salt);

  /// "iPhone 2" becomes what "iPhone" becomes, with " 2": so does every name with a number from 2 to 33 behind a blank,
  /// unless two numbers stand before it.
  std::string name(std::string_view text) const;
  std::string address(std::string_view text) const;
  std::string aapId(std::string_view text) const;

  /// Of CarPlay; 0 stays, and so does bit 41, which says something of its own.
  std::uint64_t cpDeviceId(std::uint64_t identifier) const;

  /// All that an event holds.
  Event event(Event event) const;

 private:
  std::string table(const Source& source, const std::string& bytes) const;
  std::string saved(const std::string& bytes) const;
  RecordedRow row(RecordedRow row) const;

  const std::string mSalt;
};

/// The names of a recording's lists, as the phones gave them.
class NamesWithNumbers {
 public:
  void take(const Event& event);

  /// A name that is another one with a number behind it, and is no longer with other names, so that the recorded
  /// numbers may not come out again; empty where none is.
  std::string lost() const;

 private:
  std::set<std::string> mNames;
};

}  // namespace idl::tools::recording

#endif
