# Thin wrapper over CMake presets. `make test` and `make run` work on a fresh Debian 12 machine:
# the first build installs the system packages it needs through scripts/install-deps.

JOBS ?= $(shell nproc 2>/dev/null || echo 2)
BUILD := build
PRESET := release

.PHONY: all deps configure build run test bench asan format clean

all: build

deps:
	@scripts/install-deps --check >/dev/null 2>&1 || scripts/install-deps

$(BUILD)/CMakeCache.txt: | deps
	cmake --preset $(PRESET)

configure: $(BUILD)/CMakeCache.txt

build: deps configure
	cmake --build --preset $(PRESET) -j $(JOBS)

run: build
	scripts/run-app

test: build
	ctest --preset $(PRESET) -j $(JOBS)

bench: build
	bench/run

asan: deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

format:
	git ls-files '*.cpp' '*.h' ':!third_party' | xargs clang-format -i

clean:
	rm -rf $(BUILD) build-debug build-asan
