# make run   installs what is missing, builds and opens the window
# make test  installs what is missing, builds and runs every test headless
# make screenshots  renders the window in typical states to docs/screenshots/

BUILD_DIR ?= build
MAKEFLAGS += --no-print-directory
JOBS ?= $(shell nproc)
CMAKE_ARGS ?=

.PHONY: all deps configure build run test test-sanitize bench package clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j$(JOBS)

run: build
	$(BUILD_DIR)/src/app/corvane

test: build
	cd $(BUILD_DIR) && QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j$(JOBS)

# The whole suite again, built with AddressSanitizer and UBSan in its own folder.
SANITIZE_DIR ?= build-sanitize
test-sanitize: deps
	@cmake -S . -B $(SANITIZE_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVANE_SANITIZE=ON $(CMAKE_ARGS) >/dev/null
	@cmake --build $(SANITIZE_DIR) -j$(JOBS)
	cd $(SANITIZE_DIR) && QT_QPA_PLATFORM=offscreen \
		ASAN_OPTIONS=halt_on_error=1:abort_on_error=1:detect_leaks=1 \
		UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
		ctest --output-on-failure -j$(JOBS)

bench: build
	@echo "$(BUILD_DIR)/bench/corvane-bench"

screenshots: configure
	@cmake --build $(BUILD_DIR) --target corvane-screenshots -j$(JOBS)
	@scripts/screenshots $(BUILD_DIR)

# A Debian package of the program, in the build folder.
package: build
	cd $(BUILD_DIR) && cpack -G DEB

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
