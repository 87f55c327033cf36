// SPDX-License-Identifier: Apache-2.0
#include "model/Story.h"

#include <algorithm>
#include <cstddef>
#include <ostream>

namespace model {

namespace {

constexpr std::size_t RECORD_SIZE = 263;
constexpr std::size_t NAME_OFFSET = 2;
constexpr std::size_t LONGEST_NAME = 259;

std::string constantName(const std::string& /*name*/, unsigned char /*suffix*/) { return "A phone"; }

std::string ownName(const std::string& name, unsigned char /*suffix*/) { return name; }

// Different names of the same beginning become one, and so do 9 and 19.
std::string truncatedName(const std::string& name, unsigned char suffix) {
  return name.substr(0, 3) + static_cast<char>('0' + suffix % 10);
}

std::string numberFirst(const std::string& name, unsigned char suffix) { return std::to_string(suffix) + name; }

// Long names are told by their length.
std::string quoted(const std::string& text) {
  if (text.size() <= 40) {
    return '"' + text + '"';
  }
  return '"' + text.substr(0, 8) + "...\"(" + std::to_string(text.size()) + " bytes)";
}

void tell(std::ostream& out, const Put<BtPhone>& put) {
  out << "bluetooth " << put.slot << ": ";
  if (put.phone) {
    out << "id=" << int{put.phone->id} << " name=" << quoted(put.phone->name);
  } else {
    out << "free";
  }
}

void tell(std::ostream& out, const Put<CpPhone>& put) {
  out << "carplay " << put.slot << ": ";
  if (put.phone) {
    out << "identifier=" << put.phone->identifier << " name=" << quoted(put.phone->name)
        << " btid=" << int{put.phone->btid} << " session=" << int{put.phone->inSession} << '/'
        << int{put.phone->session} << " valid=" << int{put.phone->valid};
  } else {
    out << "free";
  }
}

void tell(std::ostream& out, const Put<AapPhone>& put) {
  out << "android auto " << put.slot << ": ";
  if (put.phone) {
    out << "id=" << quoted(put.phone->id) << " name=" << quoted(put.phone->name) << " btid=" << int{put.phone->btid}
        << " port=" << put.phone->port << " session=" << int{put.phone->session};
  } else {
    out << "free";
  }
}

void tell(std::ostream& out, const SetCurrentPhone& step) { out << "connected: " << step.identifier; }

void tell(std::ostream& out, const Refresh& step) { out << "refresh " << step.type; }

void tell(std::ostream& out, const SetFormat& step) { out << "format " << static_cast<int>(step.format); }

void tell(std::ostream& out, const Restart& step) {
  out << "start: format " << static_cast<int>(step.format) << (step.awaitsBluetooth ? ", awaits Bluetooth" : "")
      << (step.isInitialised ? "" : ", forgets to initialise") << (step.removesFile ? ", no file" : "");
  if (step.overwritten && !step.file && !step.removesFile) {
    out << ", byte " << step.overwritten->at << " is " << int{step.overwritten->value};
  }
  if (step.file && !step.removesFile) {
    out << ", file of " << step.file->records.size() << " records:";
    for (const SavedRecord& record : step.file->records) {
      out << ' ' << int{record.inUse} << '/' << int{record.btid} << '/' << quoted(record.name) << '/'
          << int{record.suffix};
    }
    if (step.file->cutAt) {
      out << ", cut at " << *step.file->cutAt;
    }
    if (step.file->flipped) {
      out << ", flipped at " << *step.file->flipped;
    }
  }
}

void tell(std::ostream& out, const Number& step) {
  out << "number";
  for (const Number::Phone& phone : step.phones) {
    out << ' ' << quoted(phone.name) << '/' << int{phone.btid} << '/' << phone.port;
  }
}

template <class AnyStory>
std::ostream& tellAll(std::ostream& out, const AnyStory& story) {
  out << '\n';
  tell(out, story.start);
  for (const auto& step : story.steps) {
    out << '\n';
    std::visit([&out](const auto& alternative) { tell(out, alternative); }, step);
  }
  return out << '\n';
}

}  // namespace

FormatFunction functionOf(Format format) {
  switch (format) {
    case Format::CONSTANT:
      return constantName;
    case Format::IDENTITY:
      return ownName;
    case Format::TRUNCATING:
      return truncatedName;
    case Format::NUMBER_FIRST:
      return numberFirst;
    case Format::BUILT_IN:
      break;
  }
  return nullptr;
}

std::string bytesOf(const SavedFile& file) {
  std::string bytes(RECORD_SIZE * std::max<std::size_t>(file.records.size(), 10), '\0');
  for (std::size_t i = 0; i < file.records.size(); ++i) {
    const SavedRecord& record = file.records[i];
    const std::size_t start = i * RECORD_SIZE;
    bytes[start] = static_cast<char>(record.inUse);
    bytes[start + 1] = static_cast<char>(record.btid);
    const std::string name = record.name.substr(0, LONGEST_NAME);
    bytes.replace(start + NAME_OFFSET, name.size(), name);
    bytes[start + RECORD_SIZE - 1] = static_cast<char>(record.suffix);
  }
  if (file.flipped) {
    const std::size_t at = *file.flipped % bytes.size();
    if (at % RECORD_SIZE != NAME_OFFSET + LONGEST_NAME) {  // the byte that ends the longest name
      bytes[at] = static_cast<char>(~bytes[at]);
    }
  }
  if (file.cutAt) {
    bytes.resize(std::min<std::size_t>(*file.cutAt, bytes.size()));
  }
  return bytes;
}

std::optional<std::string> fileAfter(const Restart& restart, std::optional<std::string> file) {
  if (restart.removesFile) {
    return std::nullopt;
  }
  if (restart.file) {
    return bytesOf(*restart.file);
  }
  if (restart.overwritten && file && restart.overwritten->at < file->size()) {
    (*file)[restart.overwritten->at] = static_cast<char>(restart.overwritten->value);
  }
  return file;
}

std::ostream& operator<<(std::ostream& out, const Story& story) { return tellAll(out, story); }

std::ostream& operator<<(std::ostream& out, const NumberingStory& story) { return tellAll(out, story); }

}  // namespace model
