# SPDX-License-Identifier: Apache-2.0
# lm_record_calls(TARGET): the calls that the objects linked into TARGET make are caught at link time, for CallRecorder. Link
# the port's objects, not its library.

function(lm_record_calls target)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/framework/CallRecorder.cpp)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  foreach(call chmod close closedir fchmod flock fstat fstat64 __fstat64_time64 fstatat fstatat64 __fstatat64_time64 fsync mkdir open
          open64 openat openat64 pthread_create read rename renameat renameat2 stat stat64 __stat64_time64 unlinkat write)
    target_link_options(${target} PRIVATE -Wl,--wrap=${call})
  endforeach()
endfunction()
