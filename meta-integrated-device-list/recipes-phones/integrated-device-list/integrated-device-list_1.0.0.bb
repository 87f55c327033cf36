# SPDX-License-Identifier: Apache-2.0
SUMMARY = "One list of the phones that a car head unit knows"
DESCRIPTION = "Merges the phones of Bluetooth, Android Auto and CarPlay into one list for clients. A unit with a framework of \
its own provides virtual/lmframework instead of the port."

require ../integrated-device-list.inc

DEPENDS = "virtual/lmframework"
EXTRA_OECMAKE += "-DLM_BUILD_FRAMEWORK=OFF"
IDL_COMPONENTS = "IntegratedDeviceList IntegratedDeviceList-dev IntegratedDeviceList-doc"

inherit ptest
SRC_URI += "file://run-ptest"
RDEPENDS:${PN}-ptest += "util-linux-flock util-linux-unshare"

FILES:${PN} = "${libdir}/libIntegratedDeviceList.so.*"
FILES:${PN}-dev = "\
    ${includedir}/IntegratedDeviceList/*.h \
    ${includedir}/IntegratedDeviceListBench/simulator/*.h \
    ${includedir}/LmFramework/SharedMemory/LmSharedMemory.h \
    ${libdir}/libIntegratedDeviceList.so \
    ${libdir}/cmake/IntegratedDeviceList/* \
    ${libdir}/pkgconfig/IntegratedDeviceList.pc \
    ${libdir}/pkgconfig/IntegratedDeviceListBench.pc \
"
FILES:${PN}-doc = "${docdir}/IntegratedDeviceList"
FILES:${PN}-staticdev = "${libdir}/libIntegratedDeviceListBench.a"

# A stand-in for a service and a list, in a shared-memory folder of their own: real services are not met.
do_compile_ptest() {
    for program in bench service; do
        ${CXX} ${CXXFLAGS} -std=c++17 -I${S}/src/Public -idirafter ${S} ${S}/tests/consumers/cmake-client/$program.cpp \
            ${LDFLAGS} ${B}/simulator/libIntegratedDeviceListBench.a \
            -L${B}/src/Public/IntegratedDeviceList -lIntegratedDeviceList -lLmFramework -o ${B}/ptest-$program
    done
}
do_install_ptest() {
    install -m 0755 ${B}/ptest-bench ${B}/ptest-service ${S}/scripts/private-shm ${D}${PTEST_PATH}
}
