# Top-level commands. `make demo` and `make test` do all the set-up they need.
JOBS ?= $(shell nproc)
BUILD ?= build
TEST_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
BENCH_BUILD ?= build-bench
PACKAGE_BUILD ?= build-package
CTEST_ARGS ?=
BUILD_ARGS ?=

.PHONY: all deps build test test-slow demo fuzz bench bench-compare bench-memory lint format clean package

all: build

deps:
	@bash scripts/install-deps.sh

# Release build of the programs into build/bin.
build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DKN_TESTS=OFF $(BUILD_ARGS) > /dev/null
	cmake --build $(BUILD) -j $(JOBS)

# The whole test suite in a build with AddressSanitizer and UndefinedBehaviorSanitizer.
# Tests labelled "slow" (long randomized runs) are left out; run them with `make test-slow`.
test: deps
	cmake -S . -B $(TEST_BUILD) -DCMAKE_BUILD_TYPE=Debug -DKN_SANITIZE=ON -DKN_WERROR=ON > /dev/null
	cmake --build $(TEST_BUILD) -j $(JOBS)
	cd $(TEST_BUILD) && ASAN_OPTIONS=detect_leaks=1 ctest --output-on-failure -j $(JOBS) -LE slow $(CTEST_ARGS)

test-slow: deps
	cmake -S . -B $(TEST_BUILD) -DCMAKE_BUILD_TYPE=Debug -DKN_SANITIZE=ON -DKN_WERROR=ON > /dev/null
	cmake --build $(TEST_BUILD) -j $(JOBS)
	cd $(TEST_BUILD) && ctest --output-on-failure -L slow $(CTEST_ARGS)

demo: build
	@bash scripts/demo.sh

# The Debian package kestrane-logproc_<version>_<arch>.deb in this folder, from a release
# build in $(PACKAGE_BUILD), checked with lintian (an error fails the target).
package: deps
	cmake -S . -B $(PACKAGE_BUILD) -DCMAKE_BUILD_TYPE=Release -DKN_TESTS=OFF > /dev/null
	cmake --build $(PACKAGE_BUILD) -j $(JOBS) --target knlogproc SoundShuttle knmsg kncapture-sim kn_package_docs
	cd $(PACKAGE_BUILD) && cpack -G DEB
	cp $(PACKAGE_BUILD)/kestrane-logproc_*.deb .
	lintian --fail-on error $$(ls -t kestrane-logproc_*.deb | head -n 1)

# libFuzzer targets, built with clang. Run one on a copy of its seed corpus (the fuzzer
# adds what it finds to the first folder), e.g.
#   mkdir -p fuzz-corpus/registry && cp fuzz/corpus/registry/* fuzz-corpus/registry/
#   build-fuzz/bin/fuzz_registry -max_total_time=300 fuzz-corpus/registry
# `make test` replays each over its seed corpus and mutations of it (ctest -L fuzz).
fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKN_FUZZ=ON -DKN_TESTS=OFF > /dev/null
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzzers

# The benchmarks (bench/), built into $(BENCH_BUILD)/bin; each is run by hand.
bench: deps
	cmake -S . -B $(BENCH_BUILD) -DCMAKE_BUILD_TYPE=Release -DKN_TESTS=OFF -DKN_BENCH=ON $(BUILD_ARGS) > /dev/null
	cmake --build $(BENCH_BUILD) -j $(JOBS)

# The format of the changed lines and clang-tidy's checks on the C++ files changed against LINT_BASE (default: the
# merge-base with main; HEAD~1 on main), with the test build's compile_commands.json.
lint: deps
	bash scripts/lint.sh $(TEST_BUILD)

# Formats every tracked C++ file in place (.clang-format).
format: deps
	git ls-files -z '*.cpp' '*.h' ':!:tests/layers/upward/*' | xargs -0 clang-format -i

# The processor against ffmpeg on the same hour of audio, per target (bench/compare.sh;
# BENCH_VARIANT=large for 10 loggers x 24 hours scaled to the disk).
bench-compare: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DKN_TESTS=OFF > /dev/null
	cmake --build $(BUILD) -j $(JOBS) --target knlogproc SoundShuttle kncapture-sim
	KN_BUILD_DIR=$(BUILD) bash bench/compare.sh

# The processor's peak memory with 1, 2 and 4 conversions at once, and its memory over 20
# cycles of one process (bench/memory.sh).
bench-memory: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DKN_TESTS=OFF > /dev/null
	cmake --build $(BUILD) -j $(JOBS) --target knlogproc SoundShuttle kncapture-sim
	KN_BUILD_DIR=$(BUILD) bash bench/memory.sh

clean:
	rm -rf $(BUILD) $(TEST_BUILD) $(FUZZ_BUILD) $(PACKAGE_BUILD) $(BENCH_BUILD)
