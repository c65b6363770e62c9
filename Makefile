# One-command entry points. `make demo` shows a restoration; `make test` is what CI runs.
BUILD ?= build
ASAN_BUILD ?= build-asan
JOBS ?= $(shell nproc)
PY := /usr/bin/python3

.PHONY: bootstrap build demo test test-sanitize bench clean

bootstrap:
	bash scripts/bootstrap.sh

build: bootstrap
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS)

# A synthetic stack restored end to end: numbers on the terminal, projections in a PNG.
demo: build
	PYTHONPATH=python OVIDANE_LIBRARY=$(abspath $(BUILD))/libovdinf01.so $(PY) python/demo/demo.py --out $(BUILD)/demo

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# Unit tests under AddressSanitizer and UndefinedBehaviorSanitizer.
test-sanitize: bootstrap
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DOVD_SANITIZE=ON -DOVD_BUILD_BENCH=OFF
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1 ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS) -L unit

bench: build
	@for b in $(BUILD)/bench/bench_*; do [ -x "$$b" ] && "$$b"; done

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
