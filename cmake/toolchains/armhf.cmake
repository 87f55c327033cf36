# SPDX-License-Identifier: Apache-2.0
# The unit: 32-bit ARM Linux, hard float. Tests run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# scripts/get-target-libraries fills the second of these.
get_filename_component(LM_TARGET_LIBRARIES ${CMAKE_CURRENT_LIST_DIR}/../../build/target/armhf ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf ${LM_TARGET_LIBRARIES})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-arm;-L;/usr/arm-linux-gnueabihf")
# Everything is built by one compiler: that an older one passed some arguments otherwise is not worth a note for each.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
