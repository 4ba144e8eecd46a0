# Sets everything up on Debian 12, as root or as a user with sudo:
#   make demo    builds everything and shows the main job with the real programs
#   make test    passes the tests: plain, under AddressSanitizer and UndefinedBehaviorSanitizer, and those with threads
#                under ThreadSanitizer, and checks the sources (clang-format, cppcheck, clang-tidy)
#   make install installs, under PREFIX or /usr/local (docs/install.md)
#   make deb     builds the Debian packages, into build/deb
#   make abi     describes the libraries' ABI anew, when something was added to it (docs/abi.md)
#   make bench   measures, as ratios within one run, in four minutes or so (docs/performance.md)
#   make reference  makes a folder for the browser of the manual pages, build/reference
#   make format  formats the sources
#   make tidy-all  has clang-tidy look at all sources; the tests have it look at the libraries only
#   make coverage  shows which lines and branches of the libraries the tests run
#   make fuzz    feeds the code that reads what comes from outside, FUZZ_SECONDS for each target (docs/fuzzing.md)
#   make fuzz-coverage   shows which of its lines the corpus reaches
SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
.ONESHELL:

PACKAGES := $(shell sed 's/\#.*//' packages.txt)
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)
SOURCES = $(shell git ls-files '*.h' '*.cc' '*.c')
PRODUCT_SOURCES = $(filter orn/%.cc vesk/%.cc veskd/%.cc,$(SOURCES))

FUZZ_TARGETS := replies requests command_files certificates configuration
FUZZ_SECONDS ?= 600

.PHONY: all demo test install deb abi bench reference coverage fuzz fuzz-coverage tidy tidy-all cppcheck format check-format packages
.PHONY: build-% test-% clean

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

# Shows the tests that failed, with their output, and how many passed: the names of those would hide it.
test-%: build-%
	@ctest --preset $* --no-label-summary | grep --line-buffered --invert-match --extended-regexp ' Start +[0-9]+:|   Passed +[0-9]'

demo: build-release
	@demo/run.sh build/release

test: check-format cppcheck test-release tidy test-asan test-tsan

install: build-release
	@cmake --install build/release $(if $(PREFIX),--prefix $(PREFIX))

# In a copy of what is under version control: packaging writes into the tree.
deb: packages
	@packaging/build_packages.sh build/deb

abi: build-release
	@packaging/abi.sh describe build/release/orn/vesk/libvesk.so orn/vesk/libvesk.abi
	packaging/abi.sh describe build/release/orn/support/libornsupport.so orn/support/libornsupport.abi

bench: build-bench
	@bench/run.sh build/bench

reference: packages
	@docs/man/make_reference.py build/reference

# Of what the library's and the connection layer's own tests run, and those in which the system fails them.
coverage: build-coverage
	@find build/coverage -name '*.gcda' -delete
	ctest --preset coverage
	gcovr --root . --object-directory build/coverage --filter orn/ --exclude-throw-branches --exclude-unreachable-branches \
	  --print-summary --fail-under-line 97 --fail-under-branch 90 -j 2

# What is new goes to build/fuzz/corpus, and an input that breaks something to build/fuzz/TARGET-crash-*.
fuzz: build-fuzz
	@for target in $(FUZZ_TARGETS); do
	  mkdir -p build/fuzz/corpus/$$target
	  echo "fuzz_$$target for $(FUZZ_SECONDS) seconds"
	  build/fuzz/fuzz/fuzz_$$target -max_total_time=$(FUZZ_SECONDS) -max_len=24000 -timeout=10 -verbosity=0 \
	    -print_final_stats=1 -artifact_prefix=build/fuzz/$$target- build/fuzz/corpus/$$target fuzz/corpus/$$target
	done

fuzz-coverage: build-fuzz-coverage
	@fuzz/coverage.sh build/fuzz-coverage $(FUZZ_TARGETS)

# Clang's analyser and the checks of .clang-tidy over what other programs link.
tidy: build-release
	@printf '%s\n' $(filter orn/%.cc,$(SOURCES)) | xargs -P2 -n4 clang-tidy -p build/release --quiet 2> /dev/null

# The same over the programs too, which takes many minutes.
tidy-all: build-release
	@printf '%s\n' $(PRODUCT_SOURCES) | xargs -P2 -n4 clang-tidy -p build/release --quiet 2> /dev/null

cppcheck: packages
	@printf '%s\n' $(PRODUCT_SOURCES) | xargs -P2 -n16 cppcheck --quiet --std=c++20 --language=c++ -I. \
	  --enable=warning,performance,portability --suppressions-list=cppcheck.txt --inline-suppr --error-exitcode=1

check-format: packages
	@clang-format --dry-run --Werror $(SOURCES)

format: packages
	@clang-format -i $(SOURCES)

clean:
	rm -rf build
