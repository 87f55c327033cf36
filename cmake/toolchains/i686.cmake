# SPDX-License-Identifier: Apache-2.0
# A 32-bit x86 process on an x86-64 bench, where a bare 64-bit field is aligned to 4. Runs natively: the programs name the cross
# compiler's own loader and libraries, since the bench has none of that width.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
# scripts/get-target-libraries fills the second of these.
get_filename_component(LM_TARGET_LIBRARIES ${CMAKE_CURRENT_LIST_DIR}/../../build/target/i386 ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH /usr/i686-linux-gnu ${LM_TARGET_LIBRARIES})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,--dynamic-linker=/usr/i686-linux-gnu/lib/ld-linux.so.2 -Wl,-rpath,/usr/i686-linux-gnu/lib")
