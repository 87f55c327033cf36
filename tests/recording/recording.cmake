# SPDX-License-Identifier: Apache-2.0
# A second framework behind the same declarations, which records every call, and the tests that demand whole sequences
# of calls. A shared library like the real one, so that its class mutex is constructed before those of its user.

add_library(LmFrameworkRecording SHARED
  ${CMAKE_CURRENT_LIST_DIR}/Recorder.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RecordingLocks.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RecordingObservers.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RecordingSaveFile.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RecordingText.cpp)
lm_target_defaults(LmFrameworkRecording)
target_include_directories(LmFrameworkRecording PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests)
target_link_libraries(LmFrameworkRecording PUBLIC Threads::Threads)

lm_add_tests(sequence_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/RecordingTransfers.cpp ${CMAKE_CURRENT_LIST_DIR}/SequenceTest.cpp
  LIBRARIES IntegratedDeviceListObjects LmFrameworkRecording)
target_include_directories(sequence_tests PRIVATE ${PROJECT_SOURCE_DIR}/src/Public/IntegratedDeviceList/private)
# The copies that the segments make, in one record with the locks.
foreach(call pread pread64 pwrite pwrite64 shm_open)
  target_link_options(sequence_tests PRIVATE -Wl,--wrap=${call})
endforeach()
