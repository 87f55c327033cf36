# SPDX-License-Identifier: Apache-2.0
# What the port shares between processes: the named lock and the notifier.
lm_add_tests(shared_memory_tests
  SOURCES
    LmSharedMemNotifierTest.cpp
    LmSharedSyncObjectTest.cpp
    LockFileTest.cpp
    LockWordTest.cpp
    NamedLockTest.cpp
    NotifierRingTest.cpp
    SharedFileTest.cpp
  LIBRARIES LmFrameworkObjects)

# Signals belong to the process, and the first mapping of a lock's file changes what SIGBUS does: each case needs a
# process in which that has not happened yet, so no other tests are in this program.
lm_add_tests(lock_page_tests
  SOURCES LockPageTest.cpp
  LIBRARIES LmFrameworkObjects)

# NotifierRingTest stops writers where they matter.
foreach(call pwrite pwrite64)
  target_link_options(shared_memory_tests PRIVATE -Wl,--wrap=${call})
endforeach()

# LockFileTest does things between two of a lock's calls.
foreach(call fcntl fcntl64)
  target_link_options(shared_memory_tests PRIVATE -Wl,--wrap=${call})
endforeach()
