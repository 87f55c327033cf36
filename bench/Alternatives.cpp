// SPDX-License-Identifier: Apache-2.0
#include "bench/Alternatives.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>

#include "bench/SelfCall.h"

namespace idl::cost {

namespace {

constexpr char SERVICE[] = "org.example.Phones";
constexpr char MANAGER[] = "org.freedesktop.DBus.ObjectManager";
constexpr char METHOD[] = "GetManagedObjects";
constexpr char PHONE_INTERFACE[] = "org.example.Phone1";
constexpr char SERVICE_WORD[] = "--bus-service";
constexpr unsigned SAMPLE_BT = 10;
constexpr unsigned SAMPLE_AAP = 22;

constexpr char CONFIGURATION[] =
    "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
    " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
    "<busconfig><type>session</type><listen>unix:path=%s/bus</listen><auth>EXTERNAL</auth>\n"
    "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
    "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";

void check(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(-result, std::generic_category(), what);
  }
}

// ---------------------------------------------------------------------------------------------------- the service

int answerFailure(sd_bus_message* reply, int result) {
  sd_bus_message_unref(reply);
  return result;
}

template <class... Value>
int appendProperty(sd_bus_message* reply, const char* name, const char* type, Value... value) {
  const char dictionaryEntry = SD_BUS_TYPE_DICT_ENTRY;
  int result = sd_bus_message_open_container(reply, dictionaryEntry, "sv");
  if (result >= 0) {
    result = sd_bus_message_append(reply, "s", name);
  }
  if (result >= 0) {
    result = sd_bus_message_append(reply, "v", type, value...);
  }
  return result >= 0 ? sd_bus_message_close_container(reply) : result;
}

int appendDevice(sd_bus_message* reply, unsigned index, const DeviceInfo& device) {
  const std::string path = "/org/example/phones/" + std::to_string(index);
  const std::array<int, 13> results = {
      sd_bus_message_open_container(reply, SD_BUS_TYPE_DICT_ENTRY, "oa{sa{sv}}"),
      sd_bus_message_append(reply, "o", path.c_str()),
      sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, "{sa{sv}}"),
      sd_bus_message_open_container(reply, SD_BUS_TYPE_DICT_ENTRY, "sa{sv}"),
      sd_bus_message_append(reply, "s", PHONE_INTERFACE),
      sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, "{sv}"),
      appendProperty(reply, "Type", "i", static_cast<int>(device.type)),
      appendProperty(reply, "Name", "s", device.name.c_str()),
      appendProperty(reply, "BtId", "y", static_cast<int>(device.btid)),
      appendProperty(reply, "Port", "i", device.port),
      appendProperty(reply, "Session", "y", static_cast<int>(device.session)),
      appendProperty(reply, "CpDeviceId", "t", device.cpDeviceId),
      appendProperty(reply, "AapId", "s", device.aapId.c_str()),
  };
  for (const int result : results) {
    if (result < 0) {
      return result;
    }
  }
  int result = appendProperty(reply, "Suffix", "y", static_cast<int>(device.suffix));
  for (int open = 4; result >= 0 && open > 0; --open) {
    result = sd_bus_message_close_container(reply);
  }
  return result;
}

int answer(sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/) {
  if (sd_bus_message_is_method_call(call, MANAGER, METHOD) <= 0) {
    return 0;
  }
  const auto count = static_cast<unsigned>(std::stoul(sd_bus_message_get_path(call) + 1));
  sd_bus_message* reply = nullptr;
  int result = sd_bus_message_new_method_return(call, &reply);
  if (result < 0) {
    return result;
  }
  result = sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, "{oa{sa{sv}}}");
  for (unsigned index = 0; result >= 0 && index < count; ++index) {
    result = appendDevice(reply, index, sampleDevice(index));
  }
  if (result >= 0) {
    result = sd_bus_message_close_container(reply);
  }
  if (result >= 0) {
    result = sd_bus_send(nullptr, reply, nullptr);
  }
  return answerFailure(reply, result >= 0 ? 1 : result);
}

// ----------------------------------------------------------------------------------------------------- the client

template <class Value>
void readBasic(sd_bus_message* message, const char* type, Value& value) {
  check(sd_bus_message_enter_container(message, SD_BUS_TYPE_VARIANT, type), "variant");
  check(sd_bus_message_read_basic(message, type[0], &value), "value");
  check(sd_bus_message_exit_container(message), "variant's end");
}

void readText(sd_bus_message* message, std::string& text) {
  const char* value = nullptr;
  readBasic(message, "s", value);
  text = value;
}

void readProperty(sd_bus_message* message, DeviceInfo& device) {
  const char* name = nullptr;
  check(sd_bus_message_read_basic(message, 's', &name), "name");
  if (std::strcmp(name, "Name") == 0) {
    readText(message, device.name);
  } else if (std::strcmp(name, "AapId") == 0) {
    readText(message, device.aapId);
  } else if (std::strcmp(name, "Type") == 0) {
    std::int32_t type = 0;
    readBasic(message, "i", type);
    device.type = static_cast<LmSIntegratedDeviceListDef::DeviceType>(type);
  } else if (std::strcmp(name, "BtId") == 0) {
    readBasic(message, "y", device.btid);
  } else if (std::strcmp(name, "Port") == 0) {
    readBasic(message, "i", device.port);
  } else if (std::strcmp(name, "Session") == 0) {
    readBasic(message, "y", device.session);
  } else if (std::strcmp(name, "CpDeviceId") == 0) {
    readBasic(message, "t", device.cpDeviceId);
  } else if (std::strcmp(name, "Suffix") == 0) {
    readBasic(message, "y", device.suffix);
  } else {
    throw std::runtime_error(std::string("D-Bus: no property ") + name);
  }
}

// Calls `take` for each entry of the dictionary that comes next.
template <class Take>
void forEach(sd_bus_message* message, const char* arrayOf, const char* entryOf, Take take) {
  check(sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, arrayOf), "array");
  for (;;) {
    const int entered = sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, entryOf);
    check(entered, "entry");
    if (entered == 0) {
      break;
    }
    take();
    check(sd_bus_message_exit_container(message), "entry's end");
  }
  check(sd_bus_message_exit_container(message), "array's end");
}

void readDevices(sd_bus_message* message, std::vector<DeviceInfo>& devices) {
  devices.clear();
  forEach(message, "{oa{sa{sv}}}", "oa{sa{sv}}", [&] {
    check(sd_bus_message_skip(message, "o"), "path");
    DeviceInfo& device = devices.emplace_back();
    forEach(message, "{sa{sv}}", "sa{sv}", [&] {
      check(sd_bus_message_skip(message, "s"), "interface");
      forEach(message, "{sv}", "sv", [&] { readProperty(message, device); });
    });
  });
}

sd_bus* openBus(const std::string& address) {
  sd_bus* bus = nullptr;
  check(sd_bus_new(&bus), "sd_bus_new");
  check(sd_bus_set_address(bus, address.c_str()), "sd_bus_set_address");
  check(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client");
  check(sd_bus_start(bus), "sd_bus_start");
  return bus;
}

// The daemon says its address on a pipe of ours once it can be called; it goes when this process goes.
class Daemon {
 public:
  Daemon() {
    std::string folder = "/tmp/lm-bench-bus-XXXXXX";  // mkdtemp() puts letters of its own in the place of the X's
    if (mkdtemp(folder.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), folder);
    }
    mFolder = folder;
    const std::string file = mFolder + "/configuration";
    std::vector<char> text(sizeof(CONFIGURATION) + mFolder.size());
    std::snprintf(text.data(), text.size(), CONFIGURATION, mFolder.c_str());
    std::ofstream(file) << text.data();

    int ends[2] = {};
    if (pipe(ends) != 0) {
      throw std::system_error(errno, std::generic_category(), "pipe");
    }
    mProcess = fork();
    if (mProcess == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      dup2(ends[1], STDOUT_FILENO);
      dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);  // it complains that it may not open 65536 files
      close(ends[0]);
      close(ends[1]);
      const std::string argument = "--config-file=" + file;
      execlp("dbus-daemon", "dbus-daemon", argument.c_str(), "--nofork", "--nopidfile", "--print-address",
             static_cast<char*>(nullptr));
      _exit(127);
    }
    close(ends[1]);
    for (char byte = 0; read(ends[0], &byte, 1) == 1 && byte != '\n';) {
      mAddress += byte;
    }
    close(ends[0]);
    if (mAddress.empty()) {
      throw std::runtime_error("there is no dbus-daemon, or it has not started");
    }
  }

  ~Daemon() {
    kill(mProcess, SIGKILL);
    waitpid(mProcess, nullptr, 0);
    std::error_code ignored;  // a folder that stays behind in /tmp costs nothing
    std::filesystem::remove_all(mFolder, ignored);
  }

  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  const std::string& address() const { return mAddress; }

 private:
  std::string mFolder;
  std::string mAddress;
  pid_t mProcess = -1;
};

// ------------------------------------------------------------------------------------------------------------ JSON

nlohmann::json toJson(const DeviceInfo& device) {
  return {{"type", static_cast<int>(device.type)},
          {"name", device.name},
          {"btid", device.btid},
          {"port", device.port},
          {"session", device.session},
          {"cpDeviceId", device.cpDeviceId},
          {"aapId", device.aapId},
          {"suffix", device.suffix}};
}

}  // namespace

DeviceInfo sampleDevice(unsigned index) {
  DeviceInfo device;
  device.name = "Phone-" + std::to_string(100 + index);
  device.suffix = 1;
  if (index < SAMPLE_BT) {
    device.btid = static_cast<std::uint8_t>(index + 1);
  } else if (index < SAMPLE_AAP) {
    device.type = LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
    device.port = static_cast<std::int32_t>(index);
    device.aapId = "serial-" + std::to_string(100 + index);
  } else {
    device.type = LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;
    device.port = 1;
    device.cpDeviceId = 0x1000U + index;
  }
  return device;
}

struct Bus::Parts {
  Daemon daemon;
  SelfCall service{{SERVICE_WORD, daemon.address()}};
  sd_bus* bus = nullptr;
};

Bus::Bus() : mParts(std::make_unique<Parts>()) {
  if (mParts->service.line().empty()) {
    throw std::runtime_error("the D-Bus service has not started");
  }
  mParts->bus = openBus(mParts->daemon.address());
}

Bus::~Bus() { sd_bus_unref(mParts->bus); }

void Bus::getDevices(unsigned count, std::vector<DeviceInfo>& devices) {
  const std::string path = "/" + std::to_string(count);
  sd_bus_message* reply = nullptr;
  check(sd_bus_call_method(mParts->bus, SERVICE, path.c_str(), MANAGER, METHOD, nullptr, &reply, nullptr),
        "GetManagedObjects");
  try {
    readDevices(reply, devices);
  } catch (...) {
    sd_bus_message_unref(reply);
    throw;
  }
  sd_bus_message_unref(reply);
}

int serveDevices(const std::string& address) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  sd_bus* bus = openBus(address);
  check(sd_bus_add_filter(bus, nullptr, &answer, nullptr), "sd_bus_add_filter");
  check(sd_bus_request_name(bus, SERVICE, 0), "sd_bus_request_name");
  std::cout << "serving" << std::endl;
  for (;;) {
    const int done = sd_bus_process(bus, nullptr);
    check(done, "sd_bus_process");
    if (done == 0) {
      check(sd_bus_wait(bus, UINT64_MAX), "sd_bus_wait");
    }
  }
}

void writeJson(const std::string& path, unsigned count) {
  nlohmann::json devices = nlohmann::json::array();
  for (unsigned index = 0; index < count; ++index) {
    devices.push_back(toJson(sampleDevice(index)));
  }
  std::ofstream file(path);
  file << devices.dump();
  if (!file.flush()) {
    throw std::runtime_error(path + ": cannot be written");
  }
}

void readJson(const std::string& path, std::vector<DeviceInfo>& devices) {
  std::ifstream file(path, std::ios::binary);
  const nlohmann::json parsed = nlohmann::json::parse(file);
  devices.clear();
  for (const nlohmann::json& entry : parsed) {
    DeviceInfo& device = devices.emplace_back();
    device.type = static_cast<LmSIntegratedDeviceListDef::DeviceType>(entry.at("type").get<int>());
    entry.at("name").get_to(device.name);
    entry.at("btid").get_to(device.btid);
    entry.at("port").get_to(device.port);
    entry.at("session").get_to(device.session);
    entry.at("cpDeviceId").get_to(device.cpDeviceId);
    entry.at("aapId").get_to(device.aapId);
    entry.at("suffix").get_to(device.suffix);
  }
}

}  // namespace idl::cost
