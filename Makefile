# make run    builds everything and tells the whole story on a simulated Mac
# make up     leaves the simulated Mac and the portal running, and says how to talk to both
# make test   builds everything and runs the tests
# make check  formatting, static analysis, house rules, and the tests under the sanitizers
# make coverage  the tests' line coverage of the daemon
SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
JOBS ?= $(shell nproc)
# Tests mostly wait for each other's processes, so more of them than processors run at once.
TEST_JOBS ?= $(shell echo $$(( $(JOBS) * 3 )))
BUILD := build/release
CTEST := ctest --output-on-failure --no-tests=error --parallel $(TEST_JOBS)

.PHONY: run up test check format format-check tidy cppcheck house asan tsan coverage build packages clean

run: build
	scripts/as-root simulator/story/story --build $(BUILD)

up: build
	scripts/as-root simulator/story/story --build $(BUILD) --up

test: build
	scripts/as-root $(CTEST) --test-dir $(BUILD)

packages:
	@scripts/install-packages

build: packages
	@cmake --preset release >/dev/null
	@cmake --build $(BUILD) --parallel $(JOBS)

check: packages format-check house cppcheck tidy asan tsan
SOURCES := $(shell git ls-files --cached --others --exclude-standard '*.cpp' '*.h' 2>/dev/null)
PRODUCT := $(filter-out tests/%,$(filter %.cpp,$(SOURCES)))
# Tests that the sanitizers watch; the others run real programs, which have their own runs there.
WATCHED := unit_tests|daemon_tests|listener_tests|contract_tests

format: packages
	clang-format -i $(SOURCES)

format-check: packages
	clang-format --dry-run -Werror $(SOURCES)

house: packages
	scripts/check-house

cppcheck: build
	cppcheck --quiet --error-exitcode=1 --inline-suppr --std=c++20 --language=c++ -j $(JOBS) \
	  --enable=warning,performance,portability --suppress=missingIncludeSystem \
	  --suppressions-list=scripts/cppcheck-suppressions -I . $(PRODUCT)

tidy: build
	run-clang-tidy -quiet -j $(JOBS) -p $(BUILD) $(PRODUCT:%=/%$$) >build/tidy.log 2>&1 \
	  || { grep -E 'error:|warning:' build/tidy.log | sort -u; exit 1; }

asan tsan: packages
	@cmake --preset $@ >/dev/null
	@cmake --build build/$@ --parallel $(JOBS)
	scripts/as-root $(CTEST) --test-dir build/$@ --label-regex '$(WATCHED)'

coverage: packages
	@cmake --preset coverage >/dev/null
	@cmake --build build/coverage --parallel $(JOBS)
	@find build/coverage -name '*.gcda' -delete
	scripts/as-root $(CTEST) --test-dir build/coverage --label-regex '$(WATCHED)' --quiet
	gcovr --root . --object-directory build/coverage --print-summary --fail-under-line 95 \
	  --filter '(core|portal|account|settings|updates)/'

clean:
	rm -rf build
