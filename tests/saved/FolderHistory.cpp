// SPDX-License-Identifier: Apache-2.0
#include "saved/FolderHistory.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) {
    throw std::system_error(EIO, std::generic_category(), path);
  }
}

void collect(const std::vector<FolderHistory::Node>& nodes, std::size_t folder, const std::string& prefix,
             FolderTree& tree) {
  for (const auto& [name, node] : nodes[folder].entries) {
    if (!nodes[node].isFolder) {
      tree[prefix + name] = nodes[node].bytes;
      continue;
    }
    tree[prefix + name] = std::nullopt;
    collect(nodes, node, prefix + name + "/", tree);
  }
}

}  // namespace

FolderTree readTree(const fs::path& root) {
  FolderTree tree;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string name = entry.path().lexically_relative(root);
    if (entry.is_directory()) {
      tree[name] = std::nullopt;
    } else {
      std::ifstream file(entry.path(), std::ios::binary);
      tree[name] = std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
  }
  return tree;
}

void buildTree(const fs::path& root, const FolderTree& tree) {
  for (const auto& entry : fs::directory_iterator(root)) {
    fs::remove_all(entry.path());
  }
  for (const auto& [name, bytes] : tree) {  // a folder stands in front of what is in it
    if (bytes) {
      writeFile(root / name, *bytes);
    } else {
      fs::create_directory(root / name);
    }
  }
}

void applyToBytes(const FolderHistory::Step& step, std::string& bytes) {
  if (step.kind == FolderHistory::Kind::WRITE) {
    bytes.resize(std::max(bytes.size(), step.offset + step.bytes.size()));
    bytes.replace(step.offset, step.bytes.size(), step.bytes);
  } else {
    bytes.resize(step.offset);
  }
}

void applyStep(const FolderHistory::Step& step, std::vector<FolderHistory::Node>& nodes) {
  switch (step.kind) {
    case FolderHistory::Kind::ENTER:
      nodes[step.folder].entries[step.name] = step.node;
      break;
    case FolderHistory::Kind::LEAVE:
      nodes[step.folder].entries.erase(step.name);
      break;
    case FolderHistory::Kind::MOVE:
      nodes[step.folder].entries.erase(step.name);
      nodes[step.toFolder].entries[step.toName] = step.node;
      break;
    case FolderHistory::Kind::WRITE:
    case FolderHistory::Kind::RESIZE:
      applyToBytes(step, nodes[step.node].bytes);
      break;
    case FolderHistory::Kind::SYNC:
    case FolderHistory::Kind::RETURNED:
      break;
  }
}

FolderTree treeOf(const std::vector<FolderHistory::Node>& nodes) {
  FolderTree tree;
  collect(nodes, FolderHistory::ROOT, "", tree);
  return tree;
}
