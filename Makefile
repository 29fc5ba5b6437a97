# make run            installs what is missing, builds and opens the window
# make test           installs what is missing, builds and runs every test headless
# make test-sanitize  the whole suite again under AddressSanitizer and UBSan
# make bench          builds and runs the benchmark program: BENCH_ARGS="parse FILE"
#                     (default "store"; `build/bench/corvane-bench` lists the commands)
# make screenshots    renders the window in typical states to docs/screenshots/
# make package        builds the platform's package (Debian: .deb; macOS: disk image)
# make format         formats the C++ sources with .clang-format

BUILD_DIR ?= build
MAKEFLAGS += --no-print-directory
JOBS ?= $(shell nproc)
CMAKE_ARGS ?=
BENCH_ARGS ?= store
# CMake's progress lines are left out; its warnings and errors are shown.
CMAKE_CONFIGURE = cmake --log-level=WARNING -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all deps configure build run test test-sanitize bench screenshots package format clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@$(CMAKE_CONFIGURE) -S . -B $(BUILD_DIR) $(CMAKE_ARGS)

build: configure
	@cmake --build $(BUILD_DIR) -j$(JOBS)

run: build
	$(BUILD_DIR)/src/app/corvane

test: build
	cd $(BUILD_DIR) && QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j$(JOBS)

# The whole suite again, built with AddressSanitizer and UBSan in its own folder.
SANITIZE_DIR ?= build-sanitize
test-sanitize: deps
	@$(CMAKE_CONFIGURE) -S . -B $(SANITIZE_DIR) -DCORVANE_SANITIZE=ON $(CMAKE_ARGS)
	@cmake --build $(SANITIZE_DIR) -j$(JOBS)
	cd $(SANITIZE_DIR) && QT_QPA_PLATFORM=offscreen \
		ASAN_OPTIONS=halt_on_error=1:abort_on_error=1:detect_leaks=1 \
		UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
		ctest --output-on-failure -j$(JOBS)

bench: configure
	@cmake --build $(BUILD_DIR) --target corvane-bench -j$(JOBS)
	$(BUILD_DIR)/bench/corvane-bench $(BENCH_ARGS)

screenshots: configure
	@cmake --build $(BUILD_DIR) --target corvane-screenshots -j$(JOBS)
	@scripts/screenshots $(BUILD_DIR)

# The generator is the one the project's CPack settings choose for the platform.
package: build
	cd $(BUILD_DIR) && cpack

format:
	git ls-files -z '*.cpp' '*.h' '*.mm' | xargs -0 clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
