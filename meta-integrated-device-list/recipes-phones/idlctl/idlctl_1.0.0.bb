# SPDX-License-Identifier: Apache-2.0
SUMMARY = "Looks at a unit's phones, and plays them on a bench"
DESCRIPTION = "idlctl is made of the libraries' own objects, the port's among them, and needs neither library on the unit."

require ../integrated-device-list.inc

SECTION = "utils"
DEPENDS = "cli11 nlohmann-json utf8proc"
EXTRA_OECMAKE:remove = "-DLM_BUILD_TOOLS=OFF"
OECMAKE_TARGET_COMPILE = "idlctl"
IDL_COMPONENTS = "idlctl"

inherit ptest
SRC_URI += "file://run-ptest"

FILES:${PN} = "${bindir}/idlctl"
PACKAGES =+ "${PN}-bash-completion ${PN}-zsh-completion"
FILES:${PN}-bash-completion = "${datadir}/bash-completion/completions/idlctl"
FILES:${PN}-zsh-completion = "${datadir}/zsh/site-functions/_idlctl"

# The stories, each on a bench of its own.
do_install_ptest() {
    install -d ${D}${PTEST_PATH}/scenarios
    install -m 0644 ${S}/examples/scenarios/*.scn ${D}${PTEST_PATH}/scenarios
}
