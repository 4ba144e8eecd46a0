# Sets everything up on Debian 12, as root or as a user with sudo:
#   make demo    builds everything and shows the main job with the real programs
#   make test    passes the tests: plain, under AddressSanitizer and UndefinedBehaviorSanitizer, and those with threads
#                under ThreadSanitizer, and checks the format of the sources
#   make bench   measures, as ratios within one run, in four minutes or so (docs/performance.md)
#   make reference  makes a folder for the browser of the manual pages, build/reference
#   make format  formats the sources
SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
.ONESHELL:

PACKAGES := $(shell sed 's/\#.*//' packages.txt)
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)
SOURCES = $(shell git ls-files '*.h' '*.cc' '*.c')

.PHONY: all demo test bench reference tidy format check-format packages build-% test-% clean

all: build-release

# Asks apt only for what is missing, so that a machine that has everything needs neither root nor a network.
packages:
	@missing=()
	for package in $(PACKAGES); do
	  dpkg-query -W -f='$${Status}' "$$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$$package")
	done
	[ $${#missing[@]} -gt 0 ] || exit 0
	echo "installing: $${missing[*]}"
	$(SUDO) apt-get update -qq
	$(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$${missing[@]}" > /dev/null

build-%: packages
	@mkdir -p build
	cmake --preset $* > build/$*.log 2>&1 || { cat build/$*.log; exit 1; }
	cmake --build --preset $*

test-%: build-%
	@ctest --preset $*

demo: build-release
	@demo/run.sh build/release

test: check-format test-release test-asan test-tsan

bench: build-bench
	@bench/run.sh build/bench

reference: packages
	@docs/man/make_reference.py build/reference

# Slow, and its findings are for a reader to judge, so no part of the tests.
tidy: build-release
	@clang-tidy -p build/release --quiet $(filter orn/%.cc vesk/%.cc veskd/%.cc,$(SOURCES))

check-format: packages
	@clang-format --dry-run --Werror $(SOURCES)

format: packages
	@clang-format -i $(SOURCES)

clean:
	rm -rf build
