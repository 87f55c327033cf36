// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_NEARESTWORD_H
#define TOOLS_TEXT_NEARESTWORD_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace idl::tools {

/// How many characters have to be put in, left out, replaced, or swapped with their neighbour to make `b` of `a`,
/// none of them twice. Upper and lower case of ASCII count as the same.
std::size_t wordDistance(std::string_view a, std::string_view b);

/// The word that somebody who wrote `word` may have meant: the first of the nearest ones that are at most a third of
/// the longer word's length away.
std::optional<std::string> nearestWord(std::string_view word, const std::vector<std::string>& words);

/// "unknown word 'ful', did you mean 'full'?", or else "unknown word 'ful'"; `kind` is what it should be, "word".
std::string unknownWord(std::string_view kind, std::string_view word, const std::vector<std::string>& words);

}  // namespace idl::tools

#endif
