// SPDX-License-Identifier: Apache-2.0
// What the test programs precompile stands in CMakeLists.txt; a target has to have a source.
