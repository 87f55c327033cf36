// SPDX-License-Identifier: Apache-2.0
#include "tools/idlctl/InputFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace idl::tools {

namespace {

std::string rest(std::FILE* file, const std::string& name) {
  std::string text;
  char bytes[4096];
  for (std::size_t count = 0; (count = std::fread(bytes, 1, sizeof bytes, file)) != 0;) {
    text.append(bytes, count);
  }
  if (std::ferror(file) != 0) {
    throw std::runtime_error(name + ": " + std::strerror(errno));
  }
  return text;
}

}  // namespace

std::string contentOf(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"), std::fclose);
  if (!file) {
    throw std::runtime_error(path + ": " + std::strerror(errno));
  }
  return rest(file.get(), path);
}

std::string contentOfStandardInput() { return rest(stdin, "standard input"); }

}  // namespace idl::tools
