// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_TOOLS_SCENARIO_NOTINGBENCH_H
#define TESTS_TOOLS_SCENARIO_NOTINGBENCH_H

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "tools/scenario/Bench.h"
#include "tools/scenario/Expectation.h"

/// A bench that takes notes of what it is told, and has the lists that it was given.
class NotingBench : public idl::tools::scenario::Bench {
 public:
  using Phone = idl::tools::scenario::Phone;
  using Source = idl::tools::scenario::Source;

  void put(Source source, unsigned slot, const Phone& phone) override {
    note("put " + told(source) + ' ' + std::to_string(slot) + ' ' + told(source, phone));
  }
  void clear(Source source, unsigned slot) override { note("clear " + told(source) + ' ' + std::to_string(slot)); }
  void replaceAll(Source source, const idl::tools::scenario::PhoneTable& phones) override {
    std::string text = "replace " + told(source);
    for (const auto& [slot, phone] : phones) {
      text += ' ' + std::to_string(slot) + ' ' + told(source, phone);
    }
    note(text);
  }
  void restart(Source source) override { note("restart " + told(source)); }
  void setCurrentPhone(std::uint64_t cpId) override { note("current " + std::to_string(cpId)); }
  void crash(Source source, idl::tools::scenario::CrashMoment moment, unsigned slot, const Phone& phone) override {
    note("crash " + told(source) + ' ' + std::to_string(static_cast<int>(moment)) + ' ' + std::to_string(slot) + ' ' +
         told(source, phone));
  }
  void garbage(Source source, std::uint32_t seed) override {
    note("garbage " + told(source) + ' ' + std::to_string(seed));
  }
  void cut(Source source, std::uint32_t bytes) override { note("cut " + told(source) + ' ' + std::to_string(bytes)); }
  void vanish(Source source) override { note("vanish " + told(source)); }
  void bringBack(Source source) override { note("back " + told(source)); }
  void setBluetoothFunction(bool present) override { note(present ? "bluetooth" : "no bluetooth"); }
  void vanishFuncInfo() override { note("vanish funcinfo"); }
  void startClient(const idl::tools::scenario::ClientOptions& options) override {
    note("start " + std::to_string(static_cast<int>(options.format)) + (options.follow ? "" : " deaf") +
         (options.refreshes ? "" : " blind"));
  }
  void stopClient() override { note("stop"); }
  void killClient() override { note("kill"); }
  void refresh(Source source) override { note("refresh " + told(source)); }

  idl::tools::scenario::MaybeList list() override {
    ++looks;
    if (lists.size() > 1) {
      idl::tools::scenario::MaybeList first = lists.front();
      lists.pop_front();
      return first;
    }
    return lists.front();
  }

  std::vector<idl::tools::scenario::SavedNumber> saved() override { return numbers; }
  void setSaved(const std::vector<idl::tools::scenario::SavedNumber>& saved) override { numbers = saved; }
  void forgetSaved() override {
    numbers.clear();
    note("forget");
  }
  void cutSaved(std::uint32_t bytes) override { note("cut saved " + std::to_string(bytes)); }
  void garbageSaved(std::uint32_t seed) override { note("garbage saved " + std::to_string(seed)); }

  /// What was told since the last call.
  std::vector<std::string> take() {
    std::vector<std::string> taken;
    taken.swap(notes);
    return taken;
  }

  std::vector<std::string> notes;
  std::deque<idl::tools::scenario::MaybeList> lists = {
      std::vector<idl::tools::scenario::Row>()};  // one after the other; the last stays
  unsigned looks = 0;
  std::vector<idl::tools::scenario::SavedNumber> numbers;
  std::string breaksAt;  // the note that it breaks at, with BenchTrouble

 private:
  void note(const std::string& text) {
    notes.push_back(text);
    if (!breaksAt.empty() && text == breaksAt) {
      throw idl::tools::scenario::BenchTrouble("broken");
    }
  }

  static std::string told(Source source) { return wordOf(source); }

  static std::string told(Source source, const Phone& phone) {
    const std::string btid = phone.btid == idl::tools::scenario::BTID_NONE ? "none" : std::to_string(phone.btid);
    switch (source) {
      case Source::BT:
        return '(' + phone.name + ' ' + btid + ' ' + phone.address + ')';
      case Source::CP:
        return '(' + phone.name + ' ' + btid + ' ' + std::to_string(phone.cpId) + ' ' + std::to_string(phone.session) +
               ')';
      case Source::AAP:
        break;
    }
    return '(' + phone.name + ' ' + btid + ' ' + phone.aapId + ' ' + std::to_string(phone.port) + ' ' +
           std::to_string(phone.session) + ')';
  }
};

#endif
