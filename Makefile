# Convenience wrapper around CMake for the commands a user types.
#   make        release build of build/quillscan and build/quillscan-inv
#   make test   build and run every test, then again under ASan + UBSan
#   make bench  build and run the benchmarks
#   make demo   scan the simulated host esxi67 and show the result
JOBS ?= $(shell nproc)
BUILD ?= build
ASAN_BUILD ?= build-asan
BENCH_BUILD ?= build-bench

# Debian packages the build and the simulated hosts need.
DEB_PACKAGES = cmake g++ zlib1g-dev libgtest-dev libgmock-dev libbenchmark-dev \
               python3 iproute2 util-linux procps

.PHONY: all deps test bench demo clean

all: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD) -j $(JOBS)

deps:
	@missing=""; for p in $(DEB_PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	fi

test: all
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DQS_SANITIZE=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

bench: deps
	cmake -S . -B $(BENCH_BUILD) -DCMAKE_BUILD_TYPE=Release -DQS_BENCH=ON -DQS_TESTS=OFF
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	@for b in $(BENCH_BUILD)/bench_*; do echo "== $$b"; $$b || exit 1; done

demo: all
	sim/demo esxi67 $(BUILD)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(BENCH_BUILD) dist
