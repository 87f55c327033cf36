// SPDX-License-Identifier: Apache-2.0
// client_memory LIBRARY: what the list costs a client: loads the library, sets the list up and refreshes it from all
// sources, and prints the resident memory before and after, and what was gained, in KiB. scripts/size-report runs it.
//
// The library is loaded by its file's name and its functions are found by theirs, so that nothing of it is there
// before.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

// Resident pages in KiB, by what is mapped there. Counted page by page: the sums in /proc/self/status are estimates.
struct Memory {
  long libraries = 0;  // the device list library and the framework
  long others = 0;     // the program and the libraries that every program has, mostly shared with these
  long tables = 0;     // shared memory
  long own = 0;        // heap, stacks and what else has no file

  long all() const { return libraries + others + tables + own; }
};

long& partOf(Memory& memory, const std::string& path) {
  if (path.find("libIntegratedDeviceList") != std::string::npos || path.find("libLmFramework") != std::string::npos) {
    return memory.libraries;
  }
  if (path.find("/dev/shm/") == 0) {
    return memory.tables;
  }
  return path.empty() || path[0] == '[' ? memory.own : memory.others;
}

Memory resident() {
  Memory memory;
  std::string path;
  std::ifstream maps("/proc/self/smaps");
  for (std::string line; std::getline(maps, line);) {
    std::istringstream words(line);
    std::string first;
    words >> first;
    if (first.back() != ':') {  // the head of a mapping: addresses, rights, offset, device, inode, path
      std::string skipped;
      words >> skipped >> skipped >> skipped >> skipped;
      path.clear();
      words >> path;
    } else if (first == "Rss:") {
      long size = 0;
      words >> size;
      partOf(memory, path) += size;
    }
  }
  return memory;
}

void print(const char* when, const Memory& memory) {
  std::printf("%-7s %5ld KiB resident: both libraries %4ld, others' %5ld, tables %3ld, heap and stacks %4ld\n", when,
              memory.all(), memory.libraries, memory.others, memory.tables, memory.own);
}

template <class Function>
Function find(void* library, const char* name) {
  void* found = dlsym(library, name);
  if (found == nullptr) {
    std::fprintf(stderr, "client_memory: %s\n", dlerror());
    std::exit(1);
  }
  return reinterpret_cast<Function>(found);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: client_memory LIBRARY\n");
    return 2;
  }
  resident();  // whatever reading takes is not the library's
  const Memory before = resident();

  void* library = dlopen(argv[1], RTLD_NOW);
  if (library == nullptr) {
    std::fprintf(stderr, "client_memory: %s\n", dlerror());
    return 1;
  }
  const Memory loaded = resident();

  void* list = find<void* (*)()>(library, "_ZN11LmSingletonI23LmSIntegratedDeviceListE11getInstanceEv")();
  find<void (*)(void*)>(library, "_ZN23LmSIntegratedDeviceList10initializeEv")(list);
  const auto refresh = find<void (*)(void*, int)>(
      library, "_ZN23LmSIntegratedDeviceList16updateDeviceListEN26LmSIntegratedDeviceListDef10DeviceTypeE");
  for (int type = 0; type < 3; ++type) {
    refresh(list, type);
  }
  const Memory after = resident();

  print("before", before);
  print("loaded", loaded);
  print("after", after);
  print("gained", {after.libraries - before.libraries, after.others - before.others, after.tables - before.tables,
                   after.own - before.own});
  return 0;
}
