# Quillon's everyday commands. `make test` installs what it needs, builds once,
# runs every test, then runs them again under ASan+UBSan. A test that fails
# fails the run: tests wait for explicit events, never for a retry.
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
# Every fuzz/<Name>Fuzzer.cpp is a target (its CMake line is in fuzz/CMakeLists.txt).
FUZZ_TARGETS ?= $(patsubst fuzz/%Fuzzer.cpp,%,$(wildcard fuzz/*Fuzzer.cpp))
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=
# `make install`: where the program goes, and a staging root for packagers.
PREFIX     ?= /usr/local
DESTDIR    ?=
BINDIR     := $(PREFIX)/bin

.PHONY: deps configure build run install test test-fast test-asan test-tsan format clean bench-relay bench-record bench-tls fuzz-deps fuzz

deps:
	scripts/install-deps

configure: deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS)

build: configure
	cmake --build $(BUILD) -j $(JOBS)

# Builds only the program, then records the built-in station.
run: configure
	cmake --build $(BUILD) -j $(JOBS) --target quillon
	$(BUILD)/quillon demo

# Builds only the program (in BUILD, configured there first if it never was) and
# installs it with its systemd user unit and desktop entry, both pointing at
# BINDIR. Does not install packages.
install:
	test -f $(BUILD)/build.ninja || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS)
	cmake --build $(BUILD) -j $(JOBS) --target quillon
	mkdir -p $(BUILD)/packaging
	sed 's|@bindir@|$(BINDIR)|g' packaging/quillon.service > $(BUILD)/packaging/quillon.service
	sed 's|@bindir@|$(BINDIR)|g' packaging/quillon.desktop > $(BUILD)/packaging/quillon.desktop
	install -D -m 0755 $(BUILD)/quillon $(DESTDIR)$(BINDIR)/quillon
	install -D -m 0644 $(BUILD)/packaging/quillon.service $(DESTDIR)$(PREFIX)/lib/systemd/user/quillon.service
	install -D -m 0644 $(BUILD)/packaging/quillon.desktop $(DESTDIR)$(PREFIX)/share/applications/quillon.desktop

test-fast: build
	ctest --test-dir $(BUILD) -j $(JOBS) --output-on-failure

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUILLON_SANITIZE=ON $(CMAKE_ARGS)
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
		ctest --test-dir $(ASAN_BUILD) -j $(JOBS) --output-on-failure

test: test-fast test-asan

# The threaded suites (main loop, sockets and relay, recording, history, the
# activity list) under ThreadSanitizer; not part of `make test`.
test-tsan: deps
	cmake -S . -B $(TSAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILLON_TSAN=ON $(CMAKE_ARGS)
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
		ctest --test-dir $(TSAN_BUILD) -j $(JOBS) --output-on-failure \
		-R 'MainLoop|InterruptWatcher|Socket|Relay|Broadcast|Ripper|QLNBuffer|History|Activity' 

format:
	find src tests tools bench fuzz -name '*.cpp' -o -name '*.h' | xargs clang-format -i

# Relay CPU, memory and listener rates beside streamripper's relay (about 8 minutes;
# not part of `make test`). BENCH_ARGS=--quick for a short try-out.
bench-relay:
	python3 bench/relay/run.py $(BENCH_ARGS)

# Recording throughput, CPU, memory and audio lost at stop beside streamripper and curl
# (about 15 minutes, up to 11 GiB of temporary files; not part of `make test`).
# BENCH_ARGS=--quick to try; BENCH_ARGS="--recorders quillon,curl" to leave peers out.
bench-record:
	python3 bench/record/run.py $(BENCH_ARGS)

# HTTPS recording throughput beside curl over the same TLS station, and the CPU
# that TLS adds to real-time streams (about 5 minutes; not part of `make test`).
bench-tls:
	python3 bench/tls/run.py $(BENCH_ARGS)

# libFuzzer targets for the parsers of untrusted bytes, built with clang, each run
# for FUZZ_SECONDS on a copy of its seed corpus (not part of `make test`; see
# docs/robustness.md).
fuzz-deps:
	scripts/install-fuzz-deps

fuzz: deps fuzz-deps
	cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
		-DQUILLON_FUZZ=ON -DQUILLON_TESTS=OFF $(CMAKE_ARGS)
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target quillon_fuzzers
	scripts/run-fuzzers $(FUZZ_BUILD) $(FUZZ_SECONDS) $(FUZZ_TARGETS)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
