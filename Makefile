# Thin wrapper over CMake presets. On a machine without make, `scripts/setup run` and
# `scripts/setup test` install it first; every target installs the system packages it needs
# through scripts/install-deps, which is quiet and fast when nothing is missing.

JOBS ?= $(shell nproc 2>/dev/null || echo 2)
BUILD := build
PRESET := release
# What `make run` needs: the application and the CLI its file-manager actions call.
APP_TARGETS := brevona brevona-cli
FORMAT_SOURCES := git ls-files -z -- '*.cpp' '*.h' ':!:third_party/'

.PHONY: all deps configure build build-app run test package bench asan format format-check clean

all: build

# The package check runs again only when the list or the installed packages changed.
DEPS_STAMP := $(BUILD)/.deps-installed
deps: $(DEPS_STAMP)

$(DEPS_STAMP): scripts/install-deps $(wildcard /var/lib/dpkg/status)
	@scripts/install-deps
	@mkdir -p $(@D) && touch $@

$(BUILD)/CMakeCache.txt: | deps
	cmake --preset $(PRESET)

configure: deps $(BUILD)/CMakeCache.txt

build: configure
	cmake --build --preset $(PRESET) -j $(JOBS)

build-app: configure
	cmake --build --preset $(PRESET) -j $(JOBS) --target $(APP_TARGETS)

run: build-app
	scripts/run-app

test: build
	ctest --preset $(PRESET) -j $(JOBS)

package: build
	cd $(BUILD) && cpack -G DEB

# The corpus check comes first so that a machine without it installs nothing.
bench:
	@bench/run --check-corpus
	@$(MAKE) --no-print-directory configure
	cmake --build --preset $(PRESET) -j $(JOBS) --target brevona-cli brevona-ssim
	bench/run

asan: deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

format: deps
	$(FORMAT_SOURCES) | xargs -0 -r clang-format -i

format-check: deps
	$(FORMAT_SOURCES) | xargs -0 -r clang-format --dry-run --Werror

clean:
	rm -rf $(BUILD) build-debug build-asan
