# Top-level commands. `make test` and `make demo` install what is missing
# (as root, with apt-get), build and run.

DEBIAN_PACKAGES := build-essential cmake libeigen3-dev libfmt-dev libspdlog-dev \
  nlohmann-json3-dev libgtest-dev libbenchmark-dev python3-numpy python3-scipy \
  python3-matplotlib time clang-format clang-14 libclang-rt-14-dev libfuzzer-14-dev \
  pybind11-dev python3-pybind11 python3-pytest python3-tqdm python3-pip python3-setuptools \
  python3-wheel ccache \
  libopenmpi-dev openmpi-bin
JOBS ?= $(shell nproc)
RELEASE_DIR := build/release
SANITIZE_DIR := build/sanitize
FUZZ_DIR := build/fuzz
FUZZ_CXX ?= $(shell command -v clang++-14 || command -v clang++)
FUZZ_SECONDS ?= 60

.PHONY: all deps build python test test-release test-sanitize format-check line-ratio fuzz-build fuzz bench demo clean

all: build

deps:
	@missing=""; \
	for p in $(DEBIAN_PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    echo "Installing:$$missing"; \
	    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	  else \
	    echo "Missing Debian packages:$$missing"; \
	    echo "Install them with: sudo apt-get install$$missing"; exit 1; \
	  fi; \
	fi

$(RELEASE_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(RELEASE_DIR) -DCMAKE_BUILD_TYPE=Release -DPYTHON_EXECUTABLE=/usr/bin/python3

$(SANITIZE_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(SANITIZE_DIR) -DCMAKE_BUILD_TYPE=Sanitize -DCMAKE_CXX_FLAGS_SANITIZE="-O1" \
	  -DVELMOR_SANITIZE=ON -DVELMOR_BUILD_BENCHMARKS=OFF

# Size of the suite against the code (non-blank lines; see tools/line_ratio.sh).
line-ratio:
	@tools/line_ratio.sh

build: deps $(RELEASE_DIR)/CMakeCache.txt
	cmake --build $(RELEASE_DIR) -j $(JOBS)

# The Python module, in $(RELEASE_DIR)/python/velmor; prints the PYTHONPATH
# line that makes `import velmor` work.
python: deps $(RELEASE_DIR)/CMakeCache.txt
	cmake --build $(RELEASE_DIR) -j $(JOBS) --target python

test-release: build
	cd $(RELEASE_DIR) && ctest --output-on-failure -j $(JOBS)

test-sanitize: deps $(SANITIZE_DIR)/CMakeCache.txt
	cmake --build $(SANITIZE_DIR) -j $(JOBS)
	cd $(SANITIZE_DIR) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS)

# Every tracked C++ source must match .clang-format.
format-check: deps
	@files=$$(git ls-files '*.h' '*.cc' 2>/dev/null || find . -path ./build -prune -o \( -name '*.h' -o -name '*.cc' \) -print); \
	clang-format --dry-run -Werror $$files && echo "Formatting: all sources match .clang-format."

# The fuzz harnesses: a clang build of its own. `make test` builds them so
# that they keep compiling; `make fuzz` also runs each for FUZZ_SECONDS.
$(FUZZ_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(FUZZ_DIR) -DCMAKE_CXX_COMPILER=$(FUZZ_CXX) -DCMAKE_BUILD_TYPE=Fuzz \
	  -DVELMOR_BUILD_FUZZERS=ON

fuzz-build: deps $(FUZZ_DIR)/CMakeCache.txt
	cmake --build $(FUZZ_DIR) -j $(JOBS)

fuzz: fuzz-build
	FUZZ_SECONDS=$(FUZZ_SECONDS) fuzz/run_fuzzers.sh $(FUZZ_DIR)

test: format-check test-release test-sanitize fuzz-build

# Summarizes the bundled handwritten-digits data: 1797 images become an RBF
# similarity matrix, and quillo picks 12 representatives.
DEMO_DIR := build/demo
demo: build
	@mkdir -p $(DEMO_DIR)
	$(RELEASE_DIR)/quillo -flfilename examples/digits_features.csv -fltransformation 'RBF()' \
	  -sumsize 12 -cloglevel info -ctrl-logorder -ctrl-loggains -ctrl-logcgains \
	  -outfilesummary $(DEMO_DIR)/order.csv -outfilegains $(DEMO_DIR)/gains.npy \
	  -pgpyplotfilename $(DEMO_DIR)/gains_plot.py
	@echo "Digits of the chosen images (rank order):"
	@awk 'NR==FNR { label[FNR-1] = $$1; next } { printf "%s ", label[int($$1)] } END { print "" }' \
	  examples/digits_labels.csv $(DEMO_DIR)/order.csv
	@echo "Files: $(DEMO_DIR)/order.csv, $(DEMO_DIR)/gains.npy, $(DEMO_DIR)/gains_plot.py"

bench: build
	@for b in $(RELEASE_DIR)/bench/*_bench; do echo "== $$b"; $$b; done

clean:
	rm -rf build
