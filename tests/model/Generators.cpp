// SPDX-License-Identifier: Apache-2.0
#include "model/Generators.h"

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace model {

namespace {

using rc::Gen;
namespace gen = rc::gen;

constexpr int FULL_SIZE = 100;  // at which RapidCheck's ranges are whole
constexpr std::uint64_t USB_ATTACHED = std::uint64_t{1} << 41;

std::string longName(std::size_t size, char last) { return std::string(size - 1, 'x') + last; }

Gen<std::string> names() {
  // The second row is what numbers make of the first. The longest differ from each other behind 80 bytes, behind 255,
  // behind 259, and at the end of what a field holds.
  return gen::element<std::string>("Phone", "Phone", "Phone", "Tab", "", "P",                //
                                   "Phone 2", "Phone 2", "Phone 3", " 2", "Phone 2 2",       //
                                   longName(80, 'a'), longName(81, 'a'), longName(81, 'b'),  //
                                   longName(255, 'a'), longName(256, 'a'), longName(256, 'b'), longName(300, 'a'),
                                   longName(300, 'b'));
}

Gen<std::uint8_t> btids() { return gen::element<std::uint8_t>(1, 0, 2, 3, 4, 5, 6, 7, 253, 254, 255, 255, 255); }

Gen<std::int32_t> ports() {
  return gen::element<std::int32_t>(0, 0, 1, 1, 2, 3, 4, -1, -2, std::numeric_limits<std::int32_t>::max(),
                                    std::numeric_limits<std::int32_t>::min());
}

Gen<std::uint64_t> identifiers() {
  return gen::element<std::uint64_t>(1, 2, 3, 4, 0, USB_ATTACHED + 1, USB_ATTACHED, ~std::uint64_t{0},
                                     std::uint64_t{1} << 32, 5, 6);
}

Gen<Format> formats() {
  return gen::element(Format::BUILT_IN, Format::BUILT_IN, Format::BUILT_IN, Format::CONSTANT, Format::IDENTITY,
                      Format::TRUNCATING, Format::NUMBER_FIRST);
}

/// One of ten frees its slot.
template <class Phone>
Gen<Step> puts(unsigned slots, Gen<Phone> phones) {
  return gen::apply(
      [](unsigned slot, int chance, Phone&& phone) -> Step {
        return Put<Phone>{slot, chance == 0 ? std::optional<Phone>() : std::optional<Phone>(std::move(phone))};
      },
      gen::inRange(0U, slots), gen::inRange(0, 10), std::move(phones));
}

Gen<Step> bluetoothPuts() {
  return puts(BT_SLOTS, gen::apply(
                            [](std::uint8_t id, std::string&& name, std::uint32_t rest) {
                              return BtPhone{id,
                                             std::move(name),
                                             "00:00:5E:00:53:0" + std::to_string(rest % 10),
                                             rest,
                                             static_cast<std::uint8_t>(rest >> 8),
                                             static_cast<std::uint8_t>(rest >> 16)};
                            },
                            btids(), names(), gen::inRange<std::uint32_t>(0, 1U << 24U)));
}

Gen<Step> carPlayPuts() {
  return puts(CP_SLOTS, gen::apply(
                            [](std::uint64_t identifier, std::string&& name, std::uint8_t btid, std::uint32_t rest) {
                              return CpPhone{identifier,
                                             std::move(name),
                                             btid,
                                             static_cast<std::uint8_t>(rest % 3),
                                             static_cast<std::uint8_t>(rest >> 8),
                                             static_cast<std::uint8_t>(rest % 8 == 7 ? 0 : rest % 8 + 1),
                                             static_cast<std::uint8_t>(rest >> 16)};
                            },
                            identifiers(), names(), btids(), gen::inRange<std::uint32_t>(0, 1U << 24U)));
}

Gen<Step> androidPuts() {
  return puts(AAP_SLOTS,
              gen::apply(
                  [](std::string&& id, std::string&& name, std::uint8_t btid, std::int32_t port, std::uint8_t session) {
                    return AapPhone{std::move(id), std::move(name), session, btid, port};
                  },
                  gen::element<std::string>("a", "b", "c", "d", "", longName(300, 'i')), names(), btids(), ports(),
                  gen::inRange<std::uint8_t>(0, 255)));
}

Gen<SavedRecord> records() {
  return gen::apply(
      [](std::uint8_t inUse, std::uint8_t btid, std::string&& name, std::uint8_t suffix) {
        return SavedRecord{inUse, btid, std::move(name), suffix};
      },
      gen::element<std::uint8_t>(1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 2), btids(), names(),
      gen::element<std::uint8_t>(1, 2, 3, 0, 4, 5, 6, 9, 255));
}

Gen<SavedFile> savedFiles() {
  return gen::apply(
      [](std::vector<SavedRecord>&& found, int chance, std::uint32_t at) {
        SavedFile file{std::move(found), std::nullopt, std::nullopt};
        if (chance == 1) {
          file.cutAt = at;
        } else if (chance == 2) {
          file.flipped = at;
        }
        return file;
      },
      gen::resize(12, gen::container<std::vector<SavedRecord>>(gen::resize(FULL_SIZE, records()))), gen::inRange(0, 6),
      gen::inRange<std::uint32_t>(0, 2631));
}

/// In the fields of a record, but for the end of a name.
Gen<Overwritten> overwrittenBytes() {
  return gen::apply(
      [](std::uint32_t record, std::uint32_t offset, std::uint8_t value) {
        return Overwritten{record * 263 + offset, value};
      },
      gen::element<std::uint32_t>(0, 0, 0, 1, 1, 2, 3, 9), gen::element<std::uint32_t>(0, 0, 0, 1, 2, 3, 100, 262),
      gen::element<std::uint8_t>(2, 0, 1, 3, 'x', 255));
}

/// Most often the file stays as it is: it is the one that the client before has saved.
Gen<Restart> restarts() {
  return gen::apply(
      [](SavedFile&& file, Overwritten overwritten, int chance, int await, int initialise, Format format) {
        Restart restart;
        if (chance < 3) {
          restart.file = std::move(file);
        }
        restart.removesFile = chance == 3;
        if (chance > 3 && chance < 7) {
          restart.overwritten = overwritten;
        }
        restart.awaitsBluetooth = await == 1;
        restart.isInitialised = initialise != 1;
        restart.format = format;
        return restart;
      },
      savedFiles(), overwrittenBytes(), gen::inRange(0, 10), gen::inRange(0, 4), gen::inRange(0, 50), formats());
}

template <class Alternative, class Variant>
Gen<Variant> as(Gen<Alternative> alternatives) {
  return gen::map(std::move(alternatives), [](Alternative&& alternative) { return Variant(std::move(alternative)); });
}

Gen<Step> steps() {
  const auto refreshes =
      gen::map(gen::element(0, 0, 0, 0, 1, 1, 1, 2, 2, 2, 2, 3), [](int type) -> Step { return Refresh{type}; });
  return gen::weightedOneOf<Step>(
      {{40, refreshes},
       {15, bluetoothPuts()},
       {14, carPlayPuts()},
       {20, androidPuts()},
       {3, gen::map(identifiers(), [](std::uint64_t identifier) -> Step { return SetCurrentPhone{identifier}; })},
       {1, gen::map(formats(), [](Format format) -> Step { return SetFormat{format}; })},
       {2, as<Restart, Step>(restarts())}});
}

Gen<Number> lists() {
  return gen::map(gen::resize(24, gen::container<std::vector<Number::Phone>>(gen::resize(
                                      FULL_SIZE, gen::apply(
                                                     [](std::string&& name, std::uint8_t btid, std::int32_t port) {
                                                       return Number::Phone{std::move(name), btid, port};
                                                     },
                                                     names(), btids(), ports())))),
                  [](std::vector<Number::Phone>&& phones) { return Number{std::move(phones)}; });
}

}  // namespace

Gen<Story> stories() {
  return gen::resize(FULL_SIZE, gen::apply(
                                    [](Restart&& start, std::vector<Step>&& found) {
                                      return Story{std::move(start), std::move(found)};
                                    },
                                    restarts(), gen::container<std::vector<Step>>(steps())));
}

Gen<NumberingStory> numberingStories() {
  using NumberingStep = std::variant<Number, SetFormat, Restart>;
  const auto setFormats = gen::map(formats(), [](Format format) -> NumberingStep { return SetFormat{format}; });
  return gen::resize(
      FULL_SIZE,
      gen::apply(
          [](Restart&& start, std::vector<NumberingStep>&& found) {
            return NumberingStory{std::move(start), std::move(found)};
          },
          restarts(),
          gen::resize(
              12, gen::container<std::vector<NumberingStep>>(gen::resize(
                      FULL_SIZE, gen::weightedOneOf<NumberingStep>({{16, as<Number, NumberingStep>(lists())},
                                                                    {1, setFormats},
                                                                    {3, as<Restart, NumberingStep>(restarts())}}))))));
}

}  // namespace model
