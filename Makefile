# Convenience wrapper around CMake for the commands a user types.
#   make            release build of build/quillscan and build/quillscan-inv
#   make unit       the unit tests alone: seconds, no root needed
#   make test       build and run every test, then again under ASan + UBSan,
#                   then the end-to-end tests against the host binary
#   make esxi       the binaries for ESX/ESXi hosts, static, stripped, zlib
#                   linked in: dist/quillscan (32-bit x86) and
#                   dist/quillscan-x86_64 (x86-64); and the capture script
#                   dist/quillscan-capture
#   make capture    only dist/quillscan-capture (for hosts that refuse
#                   foreign programs; build with build/quillscan-build)
#   make test-esxi  end-to-end tests with dist/quillscan as the agent, and
#                   both host binaries compared with the native build
#   make fuzz       build the fuzz targets and run each for FUZZ_SECONDS
#   make bench      build and run the benchmarks
#   make demo       scan several simulated hosts into $(DEMO_DIR), show one scan,
#                   export them all to $(DEMO_DIR)/fleet.db, print what to try next
#   make lint       clang-tidy over the product's sources (.clang-tidy)
JOBS ?= $(shell nproc)
BUILD ?= build
ASAN_BUILD ?= build-asan
BENCH_BUILD ?= build-bench
ESXI_BUILD ?= build-esxi
ESXI64_BUILD ?= build-esxi64
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
DEMO_DIR ?= demo-scans
DIST ?= dist

# Debian packages the build and the simulated hosts need; the fleet
# playbook's test and bench also run ansible-playbook, ssh and, inside the
# simulated hosts, sshd.
DEB_PACKAGES = cmake g++ zlib1g-dev libgtest-dev libgmock-dev libbenchmark-dev \
               python3 iproute2 util-linux procps \
               libsqlite3-dev libssl-dev sqlite3 python3-jsonschema libmd-dev busybox \
               ansible-core openssh-client openssh-server
# The 32-bit and 64-bit static builds (and the check of what they produced).
ESXI_PACKAGES = cmake g++ g++-multilib lib32z1-dev zlib1g-dev binutils file
# The static checker of "make lint".
LINT_PACKAGES = cmake clang-tidy-14
# libFuzzer with the address and undefined-behaviour sanitizers.
FUZZ_PACKAGES = cmake clang-14 libclang-rt-14-dev zlib1g-dev libmd-dev

# Installs those of the Debian packages $(1) that are missing.
install_missing = missing=""; for p in $(1); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	fi

.PHONY: all deps deps-esxi deps-fuzz deps-lint lint unit test test-esxi esxi capture fuzz bench demo clean

all: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD) -j $(JOBS)

deps:
	@$(call install_missing,$(DEB_PACKAGES))

deps-esxi:
	@$(call install_missing,$(ESXI_PACKAGES))

deps-lint:
	@$(call install_missing,$(LINT_PACKAGES))

deps-fuzz:
	@$(call install_missing,$(FUZZ_PACKAGES))

# Only the unit-test binary is built; ctest runs what is labelled "unit"
# (the unit tests and the include-direction check).
unit: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD) -j $(JOBS) --target unit_tests
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -L unit

test: all
	python3 cmake/check_includes.py .
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DQS_SANITIZE=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)
	$(MAKE) test-esxi

# Every product source through clang-tidy with the build's compile
# commands; any finding fails.
LINT_SOURCES = $(wildcard app/*.cpp zxml/*.cpp host/*.cpp collectors/*/*.cpp summary/*.cpp tools/*.cpp)
lint: deps deps-lint
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
	printf '%s\n' $(LINT_SOURCES) | xargs -P $(JOBS) -n 4 clang-tidy-14 -p $(BUILD) --quiet

# The host binaries. The static links take zlib from /usr/lib32/libz.a and
# /usr/lib/x86_64-linux-gnu/libz.a (see the toolchain files); each result is
# checked before it is called done.
esxi: deps-esxi capture
	cmake -S . -B $(ESXI_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/i386-static.cmake \
	  -DCMAKE_BUILD_TYPE=Release -DQS_STATIC=ON -DQS_TESTS=OFF
	cmake --build $(ESXI_BUILD) -j $(JOBS) --target quillscan
	cmake -S . -B $(ESXI64_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/x86_64-static.cmake \
	  -DCMAKE_BUILD_TYPE=Release -DQS_STATIC=ON -DQS_TESTS=OFF
	cmake --build $(ESXI64_BUILD) -j $(JOBS) --target quillscan
	mkdir -p $(DIST)
	strip -o $(DIST)/quillscan $(ESXI_BUILD)/quillscan
	strip -o $(DIST)/quillscan-x86_64 $(ESXI64_BUILD)/quillscan
	@file $(DIST)/quillscan $(DIST)/quillscan-x86_64
	@file $(DIST)/quillscan | grep -q 'ELF 32-bit LSB executable, Intel 80386,.* statically linked,.* stripped$$' \
	  || { echo "$(DIST)/quillscan is not a static, stripped 32-bit x86 executable" >&2; exit 1; }
	@file $(DIST)/quillscan-x86_64 | grep -q 'ELF 64-bit LSB executable, x86-64,.* statically linked,.* stripped$$' \
	  || { echo "$(DIST)/quillscan-x86_64 is not a static, stripped x86-64 executable" >&2; exit 1; }

# The capture script runs as it is: copied, never generated.
capture:
	mkdir -p $(DIST)
	cp capture/quillscan-capture.sh $(DIST)/quillscan-capture
	chmod 755 $(DIST)/quillscan-capture

# The whole end-to-end suite with the host binary as the agent; the native
# build supplies the decoder and the reference for the comparison test.
test-esxi: esxi all
	cd tests/e2e && QS_AGENT=$(abspath $(DIST)/quillscan) \
	  QS_AGENT_ESXI=$(abspath $(DIST)/quillscan) \
	  QS_AGENT_ESXI64=$(abspath $(DIST)/quillscan-x86_64) QS_AGENT_NATIVE=$(abspath $(BUILD)/quillscan) \
	  QS_BUILDER=$(abspath $(BUILD)/quillscan-build) \
	  QS_DECODER=$(abspath $(BUILD)/quillscan-inv) QS_SOURCE_DIR=$(CURDIR) PYTHONPATH=$(CURDIR)/sim \
	  python3 -m unittest discover -p 'test_*.py'

# libFuzzer targets with ASan and UBSan, each run for FUZZ_SECONDS; the
# release build's agent makes the decoder target's .inv seeds in simulated
# hosts. Executions per target: $(FUZZ_BUILD)/fuzz-report.txt.
fuzz: deps-fuzz all
	CXX=clang++-14 cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DQS_FUZZ=ON -DQS_TESTS=OFF
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzzers
	QS_SEED_AGENT=$(abspath $(BUILD)/quillscan) fuzz/run $(FUZZ_BUILD) $(FUZZ_SECONDS)

bench: deps
	cmake -S . -B $(BENCH_BUILD) -DCMAKE_BUILD_TYPE=Release -DQS_BENCH=ON -DQS_TESTS=OFF
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	@for b in $(BENCH_BUILD)/bench_*; do echo "== $$b"; $$b || exit 1; done
	@echo "== capture + build of the 1,024-machine host vs. the agent's scan"
	QS_AGENT=$(abspath $(BENCH_BUILD)/quillscan) QS_BUILDER=$(abspath $(BENCH_BUILD)/quillscan-build) \
	  QS_DECODER=$(abspath $(BENCH_BUILD)/quillscan-inv) QS_SOURCE_DIR=$(CURDIR) \
	  python3 bench/bench_capture.py
	@echo "== the Ansible playbook over 1, 2, 4 and 8 simulated hosts at forks=4"
	QS_AGENT=$(abspath $(BENCH_BUILD)/quillscan) QS_BUILDER=$(abspath $(BENCH_BUILD)/quillscan-build) \
	  QS_DECODER=$(abspath $(BENCH_BUILD)/quillscan-inv) QS_SOURCE_DIR=$(CURDIR) \
	  python3 bench/bench_ansible.py

demo: all
	sim/demo $(BUILD) $(DEMO_DIR)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(BENCH_BUILD) $(ESXI_BUILD) $(ESXI64_BUILD) $(FUZZ_BUILD) $(DIST)
