# SPDX-License-Identifier: Apache-2.0
# Tests of the list service, the suffix numbers, their file and the singletons.

include(${PROJECT_SOURCE_DIR}/tests/recording/recording.cmake)
