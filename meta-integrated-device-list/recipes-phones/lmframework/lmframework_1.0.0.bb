# SPDX-License-Identifier: Apache-2.0
SUMMARY = "POSIX port of the framework below the integrated device list"
DESCRIPTION = "For units that have no framework of their own: named locks between processes, notifications, save files, the log."

require ../integrated-device-list.inc

PROVIDES = "virtual/lmframework"
OECMAKE_TARGET_COMPILE = "LmFramework"
IDL_COMPONENTS = "LmFramework LmFramework-dev"

FILES:${PN} = "${libdir}/libLmFramework.so.*"
FILES:${PN}-dev = "\
    ${includedir}/LmFramework/*.h \
    ${includedir}/LmFramework/SharedMemory/LmSharedMemNotifier.h \
    ${includedir}/LmFramework/SharedMemory/LmSharedSyncObject.h \
    ${libdir}/libLmFramework.so \
    ${libdir}/cmake/LmFramework/* \
    ${libdir}/pkgconfig/LmFramework.pc \
"
