# Front door: thin wrapper around CMake/CTest.
BUILD_DIR ?= build
FUZZ_DIR  ?= build-fuzz
FUZZ_SECONDS ?= 60
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps configure build run test bench fuzz package install clean

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) -G Ninja $(CMAKE_FLAGS)

configure: $(BUILD_DIR)/build.ninja

build: deps configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

# Opens Brindle on a scratch copy of the bundled sample dataset.
run: build
	@rm -rf $(BUILD_DIR)/sample-run && mkdir -p $(BUILD_DIR)/sample-run
	@cp -r samples/dataset/. $(BUILD_DIR)/sample-run/
	$(BUILD_DIR)/brindle $(BUILD_DIR)/sample-run/images $(BUILD_DIR)/sample-run/annotations

test: build
	cd $(BUILD_DIR) && QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j $(JOBS)

# A Debian package of the program (build/brindle_<version>_<arch>.deb).
package: build
	cd $(BUILD_DIR) && cpack -G DEB

# Installs under PREFIX (default /usr/local); DESTDIR is honoured.
PREFIX ?= /usr/local
install: build
	cmake --install $(BUILD_DIR) --prefix $(PREFIX)

bench: build
	@set -e; for b in $(BUILD_DIR)/bench/bench_*; do \
	  [ -f "$$b" ] && [ -x "$$b" ] || continue; echo "== $$b"; QT_QPA_PLATFORM=offscreen "$$b"; done

fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DBRINDLE_BUILD_FUZZ=ON -DBRINDLE_BUILD_TESTS=OFF -DBRINDLE_BUILD_BENCH=OFF
	cmake --build $(FUZZ_DIR) -j $(JOBS)
	@set -e; for f in $(FUZZ_DIR)/fuzz/fuzz_*; do \
	  [ -f "$$f" ] && [ -x "$$f" ] || continue; name=$$(basename $$f); corpus=$(FUZZ_DIR)/corpus/$$name; \
	  mkdir -p $$corpus; echo "== $$name for $(FUZZ_SECONDS) s"; \
	  "$$f" -max_total_time=$(FUZZ_SECONDS) -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
	    $$corpus fuzz/corpus/$$name; done

clean:
	rm -rf $(BUILD_DIR) $(FUZZ_DIR)
