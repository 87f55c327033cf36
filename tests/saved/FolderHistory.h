// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SAVED_FOLDERHISTORY_H
#define TESTS_SAVED_FOLDERHISTORY_H

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// What lies in a folder: the bytes of each file by its path from there, nothing for a folder.
using FolderTree = std::map<std::string, std::optional<std::string>>;

FolderTree readTree(const std::filesystem::path& root);

/// Makes the folder hold that and nothing else; the folder itself has to be there.
void buildTree(const std::filesystem::path& root, const FolderTree& tree);

/// What was done to a folder and all below it, step by step.
///
/// Files and folders are nodes: a name may go from one to another, and what is synced is a node, not a name.
struct FolderHistory {
  static constexpr std::size_t ROOT = 0;

  struct Node {
    bool isFolder = false;
    std::string bytes;                           // of a file
    std::map<std::string, std::size_t> entries;  // of a folder
  };

  enum class Kind {
    ENTER,     // `node` gets the name in `folder`
    LEAVE,     // the name in `folder` goes
    MOVE,      // `node` goes from the name in `folder` to the one in `toFolder`
    WRITE,     // `bytes` at `offset` of `node`
    RESIZE,    // `node` is `offset` bytes long
    SYNC,      // what was done to `node` before is durable
    RETURNED,  // the save says that it is done
  };

  struct Step {
    Kind kind = Kind::RETURNED;
    std::size_t node = 0;
    std::size_t folder = 0;
    std::string name;
    std::size_t toFolder = 0;
    std::string toName;
    std::size_t offset = 0;
    std::string bytes;
  };

  std::vector<Node> nodes;  // as they were at first; those that are made later are empty
  std::vector<Step> steps;
};

/// Applies a step to the names, or to the bytes, as though nothing could be lost.
void applyStep(const FolderHistory::Step& step, std::vector<FolderHistory::Node>& nodes);

/// Applies a step that is WRITE or RESIZE to the bytes of its file.
void applyToBytes(const FolderHistory::Step& step, std::string& bytes);

/// What can be reached from the root by names.
FolderTree treeOf(const std::vector<FolderHistory::Node>& nodes);

#endif
