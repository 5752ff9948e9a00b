# Thin wrappers over CMake. `make run` and `make test` install what is missing first. Each build's
# settings live in CMakePresets.json; these only choose the preset and its folder. CI=true in the
# environment turns warnings into errors (CMakeLists.txt reads it).
BUILD      ?= build
NOGUI      ?= build-nogui
SANITIZE   ?= build-asan
FUZZBUILD  ?= build-fuzz
BENCHBUILD ?= build-bench
JOBS       ?= $(shell nproc)
FUZZ_SECONDS ?= 60

.PHONY: all deps configure build run package test test-main test-kill test-nogui test-asan test-fuzz-smoke bench fuzz clean

all: build

deps:
	@scripts/install-deps

configure: deps
	cmake --preset dev -B $(BUILD)

build: configure
	cmake --build $(BUILD) -j $(JOBS)

run: build
	$(BUILD)/src/app/fiva

# The Debian package of the build, written to $(BUILD)/package/.
package: build
	cd $(BUILD) && cpack

test: test-main test-nogui test-asan test-fuzz-smoke

test-main: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -LE kill

# SIGKILL at 40 instants of saves of a 100,000-record data file; about a minute.
test-kill: build
	cd $(BUILD) && ctest --output-on-failure -L kill

# The libraries, fiva-cli and their tests without QtWidgets, proving the layering holds.
test-nogui: deps
	cmake --preset nogui -B $(NOGUI)
	cmake --build $(NOGUI) -j $(JOBS)
	# The ZIP library is built the same way as in test-main, which already ran its entries past 4 GiB.
	cd $(NOGUI) && ctest --output-on-failure -j $(JOBS) -LE 'large|kill'

# The ZIP library and its tests under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan: deps
	cmake --preset asan-zip -B $(SANITIZE)
	cmake --build $(SANITIZE) -j $(JOBS)
	cd $(SANITIZE) && ctest --output-on-failure -j $(JOBS)

# Every fuzz target for 30 seconds from its seed corpus; any crash fails the run.
test-fuzz-smoke:
	$(MAKE) fuzz FUZZ_SECONDS=30

bench: deps
	cmake --preset bench -B $(BENCHBUILD)
	cmake --build $(BENCHBUILD) -j $(JOBS)
	bench/run-all.sh $(BENCHBUILD)

fuzz: deps
	cmake --preset fuzz -B $(FUZZBUILD)
	cmake --build $(FUZZBUILD) -j $(JOBS) --target fuzzers
	fuzz/run-all.sh $(FUZZBUILD) $(FUZZ_SECONDS)

# Each screen with demo data, rendered offscreen into $(BUILD)/screenshots/*.png.
screenshots: configure
	cmake --build $(BUILD) -j $(JOBS) --target fiva-screenshots fiva-app-screenshots
	QT_QPA_PLATFORM=offscreen $(BUILD)/src/ui/tools/fiva-screenshots $(BUILD)/screenshots
	QT_QPA_PLATFORM=offscreen $(BUILD)/src/app/fiva-app-screenshots $(BUILD)/screenshots

clean:
	rm -rf $(BUILD) $(NOGUI) $(SANITIZE) $(FUZZBUILD) $(BENCHBUILD)
