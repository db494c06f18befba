# The front door: every target installs what it needs (as root or through sudo; otherwise it prints the line to
# type), builds with CMake below build/, and runs.

BUILD_PACKAGES = $(shell cat packaging/packages.build)
CHECK_PACKAGES = $(shell cat packaging/packages.check)
CROSS_PACKAGES = $(shell cat packaging/packages.cross)
DEBIAN_PACKAGES = $(shell cat packaging/packages.debian)
DOC_PACKAGES = $(shell cat packaging/packages.doc)
SOC_PACKAGES = $(shell cat packaging/packages.soc)
HOSTS_PACKAGES = $(shell cat packaging/packages.hosts)
BENCH_PACKAGES = $(shell cat packaging/packages.bench)
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 30
MUTANTS ?= 2000
MUTATION_THRESHOLD = 97

.PHONY: help demo test check bench coverage format format-check tidy sanitizers clang-build scripts-check fuzz abi-check abi-baseline packages cross board-arm64 board-zynq board-zynqmp board-soc board-check board-kernels soak mutation hosts doc build clean

help: ## Show this list
	@awk -F ':.*## ' '/^[a-z0-9-]+:.*## / {printf "  make %-14s %s\n", $$1, $$2}' $(MAKEFILE_LIST)

demo: setup ## Boot the virtual board and show the library at work on a real kernel
	@tools/build release demo
	@tools/demo build/release

test: build ## Build, run the unit tests and, on the virtual board, the board tests
	@tools/run-tests build/release

check: format-check scripts-check doc tidy clang-build abi-check packages sanitizers fuzz coverage board-check soak cross board-arm64 board-soc ## The full check: formatting, reference, static analysis, binary interface, packages, sanitizers, fuzzing, coverage, ARM

bench: ## Time the library beside the bare system calls and beside other event loops
	@tools/need-packages $(BUILD_PACKAGES) $(BENCH_PACKAGES)
	@bench/run

coverage: setup-check ## Run the unit tests and check the coverage of lines and branches
	@tools/build coverage
	@ctest --preset coverage -j $(JOBS)
	@tools/coverage build/coverage

format: setup-check ## Format all sources
	@tools/sources | xargs clang-format -i

format-check: setup-check ## Check the formatting of all sources
	@tools/sources | xargs clang-format --dry-run --Werror

tidy: setup-check ## Analyse the libraries' sources with clang-tidy
	@tools/build clang
	@tools/sources base src | grep '\.cpp$$' | xargs -P $(JOBS) -n 1 clang-tidy --quiet -p build/clang

clang-build: setup-check ## Build everything with clang as well
	@tools/build clang

abi-check: setup-check ## Compare exported names and record layouts with the recorded ones
	@tools/build libraries
	@tools/abi check build/libraries

abi-baseline: setup-check ## Record the exported names and record layouts in packaging/abi/
	@tools/build libraries
	@tools/abi baseline build/libraries

packages: setup ## Build the Debian packages into build/packages/
	@tools/need-packages $(DEBIAN_PACKAGES) $(DOC_PACKAGES)
	@tools/packages

sanitizers: setup-check ## Run the unit tests under the address, undefined-behaviour and thread sanitizers
	@tools/build asan
	@ctest --preset asan -j $(JOBS)
	@tools/build tsan
	@ctest --preset tsan -j $(JOBS)

cross: setup-cross ## Build for 64-bit and 32-bit ARM, and run the unit tests in an emulator
	@tools/build aarch64
	@ctest --preset aarch64 -j $(JOBS)
	@tools/build armhf
	@ctest --preset armhf -j $(JOBS)

board-arm64: setup-cross ## Run the board tests on a virtual board with a 64-bit ARM processor
	@tools/build aarch64
	@ctest --preset board-arm64 -j $(JOBS)

board-zynq: setup-cross ## Run the board tests and the examples on a virtual Zynq-7000, whose kernel is built first
	@tools/build armhf
	@ctest --preset board-zynq

board-zynqmp: setup-cross ## Run the board tests and the examples on a virtual ZynqMP, whose kernel is built first
	@tools/build aarch64
	@ctest --preset board-zynqmp

board-soc: setup-cross ## Both of these at the same time
	@tools/need-packages $(SOC_PACKAGES)
	@$(MAKE) --no-print-directory --jobs=2 --output-sync=target board-zynq board-zynqmp

board-check: build ## Test the virtual board itself
	@ctest --preset board-runner -j $(JOBS)

board-kernels: build ## Run the board tests on the kernels of Debian 11, 12 and 13 and the newest, and make the table in docs/kernels.md
	@tools/board-kernels build/release

soak: build ## Move a mebibyte through an emulated serial port, and plug 200 emulated USB devices in and out
	@tools/soak build/release

fuzz: setup-check ## Run each fuzz target for FUZZ_SECONDS (30)
	@tools/build fuzz
	@tools/fuzz build/fuzz $(FUZZ_SECONDS)

mutation: setup-check ## Change the libraries in MUTANTS (2000) small ways, and check that a unit test notices each; MUTANTS= tries all
	@tools/build release
	@tools/mutation --threshold $(MUTATION_THRESHOLD) $(if $(MUTANTS),--sample $(MUTANTS)) --jobs $(JOBS)

hosts: ## Try the README's commands on fresh Debian 12 and 13 systems; needs root, takes an hour and a half
	@tools/need-packages $(HOSTS_PACKAGES)
	@tools/hosts

scripts-check: setup-check ## Check the shell and Python scripts, the wording of headers and pages, and the mutation tool
	@tools/scripts | xargs shellcheck --external-sources
	@tools/scripts python3 | xargs pyflakes3
	@tools/wording
	@tests/mutation/check_mutation.sh

doc: ## Make the reference of the headers below build/doc: HTML and man pages
	@tools/need-packages $(DOC_PACKAGES)
	@tools/doc

build: setup ## Build the libraries, tests and examples
	@tools/build release

clean: ## Remove everything that was built
	rm -rf build

.PHONY: setup setup-check setup-cross
setup:
	@tools/need-packages $(BUILD_PACKAGES)
setup-check: setup
	@tools/need-packages $(CHECK_PACKAGES)
setup-cross: setup
	@tools/need-packages $(CROSS_PACKAGES)
