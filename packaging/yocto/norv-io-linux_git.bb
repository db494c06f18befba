SUMMARY = "Hardware access for embedded Linux boards through one C interface"
DESCRIPTION = "GPIO, LEDs, PWM, I2C, SPI, serial ports, CAN, raw flash and eMMC, UIO and DMA, FPGA and device-tree \
overlays, sensors and system state, and an event loop that serves them all. It needs the C library alone."
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=f24fef78728fe61f1f117c1206b7833c"

# The recipe builds the tree that it stands in. A layer that has a copy of it names its sources with SRC_URI and SRCREV
# instead.
inherit cmake externalsrc pkgconfig
EXTERNALSRC = "${@os.path.abspath(os.path.join(d.getVar('THISDIR'), '..', '..'))}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"
PV = "0.1+git"

EXTRA_OECMAKE = "-DNORV_BUILD_TESTS=OFF -DNORV_BUILD_BOARD_TESTS=OFF -DNORV_BUILD_EXAMPLES=OFF -DNORV_BUILD_TOOL=OFF"

# A board's maker may put another base library of the same interface into its place.
PACKAGE_BEFORE_PN = "libnorv-base"
FILES:libnorv-base = "${libdir}/libnorv_base${SOLIBS}"
