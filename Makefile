# Everything a developer does:
#   make run       build, then solve examples/diet.py
#   make test      C++ and Python tests
#   make bench     speed, next to other packages
#   make lint      formatting, static analysis, types
#   make sanitize  the tests under AddressSanitizer and UndefinedBehaviorSanitizer
#   make wheel     a wheel in dist/
# Each interpreter has its own virtual environment and build directory; another one is chosen by
# `make test PYTHON=/path/to/python`. ARGS is passed on to pytest.

.DEFAULT_GOAL := build
JOBS ?= 2
ARGS ?=

ifeq ($(filter clean help,$(MAKECMDGOALS)),)
# The full path of the interpreter, checked for what building needs.
DEFAULT_PYTHON := $(shell .ci/find-python oldest $(if $(PYTHON),2>/dev/null))
CHOSEN_PYTHON := $(if $(PYTHON),$(shell .ci/find-python '$(PYTHON)'),$(DEFAULT_PYTHON))
ifeq ($(CHOSEN_PYTHON),)
$(error No Python to build with, see above)
endif
PYVER := $(shell '$(CHOSEN_PYTHON)' -c 'import sys; print("%d.%d" % sys.version_info[:2])')
endif

ifeq ($(CHOSEN_PYTHON),$(DEFAULT_PYTHON))
VENV := .venv
else
VENV := .venv-$(PYVER)
endif
BIN := $(CURDIR)/$(VENV)/bin
BUILD := build/$(PYVER)
SANITIZED := build/$(PYVER)-sanitize
READY := $(VENV)/.ready
TOOLS := $(VENV)/.tools
# Build tools come from the virtual environment, never from the system.
export PATH := $(BIN):$(PATH)

compiler_file = $(shell $${CXX:-c++} -print-file-name=$(1))

.PHONY: build run test bench lint format sanitize wheel clean compiler

# The environment follows the lists of what it holds. Building in it (and not isolated, as
# `pip install .` does) is what makes rebuilding quick.
pip_install = $(BIN)/python -m pip install --quiet --disable-pip-version-check -r

$(READY): pyproject.toml cmake/build_requires.py
	@test -x $(BIN)/python || '$(CHOSEN_PYTHON)' -m venv $(VENV)
	@$(BIN)/python cmake/build_requires.py > $(VENV)/build-requires.txt
	$(pip_install) $(VENV)/build-requires.txt
	@# Makes `import nalora` find the build tree.
	@$(BIN)/python -c 'import sysconfig, pathlib; \
	    pathlib.Path(sysconfig.get_paths()["purelib"], "nalora-dev.pth") \
	        .write_text("$(CURDIR)/$(BUILD)/python\n")'
	@touch $@

$(TOOLS): $(READY) requirements-dev.txt
	$(pip_install) requirements-dev.txt
	@touch $@

compiler:
	@echo 'constexpr auto id = []<typename T>(T x) { return x; }; int main() { return id(0); }' | \
	    $${CXX:-c++} -std=c++20 -fsyntax-only -x c++ - 2>/dev/null || { \
	    echo "error: no C++20 compiler ($${CXX:-c++}): g++ 10 or clang 12 and later will do." >&2; \
	    echo "Debian or Ubuntu: apt-get install g++. Choose one by: make CXX=..." >&2; exit 1; }

configure = cmake -S . -B $(1) -G Ninja -DPython_EXECUTABLE=$(BIN)/python $(2) > $(1).log 2>&1 \
    || { cat $(1).log; exit 1; }

$(BUILD)/build.ninja: $(READY)
	@mkdir -p build
	$(call configure,$(BUILD))
	@touch $@

$(SANITIZED)/build.ninja: $(READY)
	@mkdir -p build
	$(call configure,$(SANITIZED),-DNALORA_SANITIZE=ON)
	@touch $@

build: compiler $(BUILD)/build.ninja
	@ninja -C $(BUILD) -j $(JOBS)

# Without the C++ tests, which take as long to compile as the rest.
run: compiler $(BUILD)/build.ninja
	@ninja -C $(BUILD) -j $(JOBS) naloralib
	@$(BIN)/python examples/diet.py

test: build $(TOOLS)
	@ctest --test-dir $(BUILD) --output-on-failure
	@$(BIN)/python -m pytest $(ARGS)

bench: build
	@$(BIN)/python benchmarks/run.py $(ARGS)

# libstdc++ is preloaded too: an interpreter in C does not bring it, and the sanitizer's hooks for
# exceptions must find it. Leaks are looked for in the C++ tests; the interpreter has its own.
sanitize: compiler $(SANITIZED)/build.ninja $(TOOLS)
	@ninja -C $(SANITIZED) -j $(JOBS)
	@ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	    ctest --test-dir $(SANITIZED) --output-on-failure
	@LD_PRELOAD="$(call compiler_file,libasan.so) $(call compiler_file,libstdc++.so)" \
	    ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1 PYTHONMALLOC=malloc \
	    PYTHONPATH=$(CURDIR)/$(SANITIZED)/python $(BIN)/python -m pytest $(ARGS)

CXX_FILES = $(shell find engine src tests -name '*.cpp' -o -name '*.hpp' -o -name '*.h' -o -name '*.c')
TIDY_FILES = $(shell find engine src/naloralib -name '*.cpp' -not -path '*/tests/*')
# The packaged clang-tidy comes without the compiler's own headers (stddef.h and the like). What it
# finds goes to standard output; the other stream only counts warnings in system headers.
TIDY = clang-tidy -p $(BUILD) --quiet --extra-arg=-Wno-missing-field-initializers \
    --extra-arg=-idirafter$(call compiler_file,include)

lint: build $(TOOLS)
	clang-format --dry-run -Werror $(CXX_FILES)
	ruff check .
	ruff format --check .
	mypy
	$(BIN)/python -m mypy.stubtest nalora --mypy-config-file pyproject.toml --allowlist tests/stubtest_allowlist.txt
	@echo "clang-tidy, $(words $(TIDY_FILES)) files"
	@echo $(TIDY_FILES) | tr ' ' '\n' | xargs -P $(JOBS) -n 4 $(TIDY) 2>/dev/null

format: $(TOOLS)
	clang-format -i $(CXX_FILES)
	ruff check --fix .
	ruff format .

wheel: compiler $(READY)
	$(BIN)/python -m pip wheel --no-deps --no-build-isolation --wheel-dir dist .

clean:
	rm -rf build dist .venv .venv-* .mypy_cache .pytest_cache .ruff_cache .hypothesis
