# SPDX-License-Identifier: Apache-2.0
# Programs about the saved table, which reach the library's private classes.

include(${PROJECT_SOURCE_DIR}/tests/framework/call_recorder.cmake)

# lm_record_folders(TARGET): the calls that the objects linked into TARGET make are caught at link time, for
# FolderRecording. Link the port's objects, not its library.
function(lm_record_folders target)
  set(folder ${PROJECT_SOURCE_DIR}/tests/saved)
  target_sources(${target} PRIVATE
    ${folder}/CrashStates.cpp ${folder}/FolderHistory.cpp ${folder}/FolderRecording.cpp)
  target_include_directories(${target} PRIVATE
    ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/src/Public/IntegratedDeviceList/private)
  foreach(call close fdatasync fsync ftruncate64 mkdir open64 openat64 pwrite64 rename renameat renameat2 rmdir unlink
          unlinkat write)
    target_link_options(${target} PRIVATE -Wl,--wrap=${call})
  endforeach()
endfunction()

# lm_fail_calls(TARGET): the same for FailedCalls.
function(lm_fail_calls target)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/saved/FailedCalls.cpp)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src/Public/IntegratedDeviceList/private)
  lm_record_calls(${target})
endfunction()
