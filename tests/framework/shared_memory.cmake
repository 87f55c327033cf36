# SPDX-License-Identifier: Apache-2.0
# What the port shares between processes: the named lock and the notifier.
lm_add_tests(shared_memory_tests
  SOURCES
    LmSharedMemNotifierTest.cpp
    LmSharedSyncObjectTest.cpp
    NotifierRingTest.cpp
    SharedFileTest.cpp
  LIBRARIES LmFrameworkObjects)
