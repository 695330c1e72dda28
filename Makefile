# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# The two commands: "make demo" and "make test". Both install what is missing first.

BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc)
CMAKE_ARGS ?= -DKAVRO_WERROR=ON

.PHONY: all deps configure build test demo bench bench-deps screenshots asan tsan format clean

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_ARGS)

configure: deps $(BUILD_DIR)/build.ninja

build: configure
	cmake --build $(BUILD_DIR) --parallel $(JOBS)

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure --parallel $(JOBS)

demo: build
	@bash scripts/demo.sh $(BUILD_DIR)

# The benchmarks: figures beside their baselines, also in bench/results.json.
# Their peers (pugixml, KDSoap) are installed first, before the build looks for them.
bench-deps:
	@bash scripts/install-deps.sh --bench

bench: bench-deps
	@$(MAKE) --no-print-directory configure
	@cmake -S . -B $(BUILD_DIR) >/dev/null # an existing build finds the peers installed since it was configured
	@$(MAKE) --no-print-directory build
	@bash scripts/bench.sh $(BUILD_DIR)

# The pictures of the dialogs in docs/images, taken in real windows on a virtual X display.
screenshots: build
	KAVRO_SCREENSHOT_DIR=$(CURDIR)/docs/images ctest --test-dir $(BUILD_DIR) -R '^ui/dialogscreenshots$$' --output-on-failure

# Every test under AddressSanitizer and UndefinedBehaviorSanitizer.
asan:
	$(MAKE) test BUILD_DIR=build-asan BUILD_TYPE=Debug CMAKE_ARGS='-DKAVRO_WERROR=ON -DKAVRO_SANITIZE="address;undefined"'

# The concurrency-heavy tests under ThreadSanitizer, against a Qt built for it
# (built once by scripts/build-tsan-qt.sh into ~/.cache/kavro/qt-tsan).
tsan: deps
	@set -e; qt=$$(bash scripts/build-tsan-qt.sh); \
	cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKAVRO_WERROR=ON -DKAVRO_SANITIZE=thread \
	    -DKAVRO_TRANSLATIONS=OFF -DKAVRO_WIDGETS=OFF -DCMAKE_PREFIX_PATH="$$qt" -DCMAKE_BUILD_RPATH="$$qt/lib"; \
	cmake --build build-tsan --parallel $(JOBS); \
	TSAN_OPTIONS="halt_on_error=0 exitcode=66 second_deadlock_stack=1 die_after_fork=0" \
	    ctest --test-dir build-tsan --output-on-failure -R '^(transport|protocol|client|server|integration|tsan)/'; \
	TSAN_OPTIONS="halt_on_error=0 exitcode=66" ctest --test-dir build-tsan -R '^tsan/' --repeat until-fail:10

format: deps
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) build-asan build-tsan
