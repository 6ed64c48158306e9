# The one place to start from: `make help`.
SHELL := /bin/bash
.DEFAULT_GOAL := help

# Recipes that take several steps are single shells: a failed step ends them.
.SHELLFLAGS := -euo pipefail -c
.ONESHELL:

BUILD_PACKAGES := packaging/build-packages.txt
TOOL_PACKAGES := packaging/tool-packages.txt

# Configures and builds one preset; both steps do nothing where nothing changed.
define build
	cmake --preset $(1) >/dev/null
	cmake --build --preset $(1) $(2)
endef

.PHONY: help
help: ## Show what can be made
	@awk -F ':.*## ' '/^[a-z-]+:.*## / { printf "  make %-12s %s\n", $$1, $$2 }' Makefile

.PHONY: setup
setup: ## Install the Debian packages that are missing
	@packaging/install-packages $(BUILD_PACKAGES)

.PHONY: setup-tools
setup-tools: setup
	@packaging/install-packages $(TOOL_PACKAGES)

.PHONY: build
build: setup ## Build everything (preset dev)
	@$(call build,dev)

.PHONY: demo
demo: setup ## Run an application against a service and a simulated vehicle
	@$(call build,dev,--target cdx-demo) | tail -n 1
	build/dev/bin/cdx-demo

.PHONY: test
test: build ## Build and run all tests, and the end-to-end tests sanitized
	@ctest --preset dev -j 4
	$(call build,asan,--target e2e-tests)
	ctest --preset asan -j 4 -L e2e

.PHONY: test-asan
test-asan: setup ## All tests under AddressSanitizer, UndefinedBehaviorSanitizer and LeakSanitizer
	@$(call build,asan)
	ctest --preset asan -j 4

.PHONY: test-tsan
test-tsan: setup ## All tests under ThreadSanitizer, with XAL_INTERLEAVINGS (10000) random interleavings
	@$(call build,tsan)
	XAL_INTERLEAVINGS=$${XAL_INTERLEAVINGS:-10000} ctest --preset tsan -j 4

.PHONY: soak
soak: setup ## Exchange under random faults for SOAK_SECONDS (600), drawn from SEED (printed)
	@$(call build,dev,--target soak) | tail -n 1
	build/dev/bin/soak $(or $(SOAK_SECONDS),600) $(SEED)

.PHONY: soak-tsan
soak-tsan: setup ## The same under ThreadSanitizer: the first race ends it
	@$(call build,tsan,--target soak) | tail -n 1
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 build/tsan/bin/soak $(or $(SOAK_SECONDS),600) $(SEED)

.PHONY: load
load: setup ## Faults and loads in full size: the loads, every cut, every shortage of memory (some half an hour)
	@$(call build,dev,--target full-load cut-sweep memory-sweep)

.PHONY: bench
bench: setup-tools ## Measure (preset release)
	@$(call build,release,--target bench-programs)
	cmake --build --preset release --target bench

.PHONY: lint
lint: setup-tools ## Check format, clang-tidy's findings and the tree's own rules
	@cmake --preset dev -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
	cmake/lint

.PHONY: fuzz
fuzz: setup ## Run each fuzz target for a bounded number of inputs
	@$(call build,asan,--target fuzz-targets)
	ctest --preset fuzz -j 4

.PHONY: docs
docs: setup-tools ## Make the reference of the public headers (build/docs/html)
	@cmake/docs

.PHONY: install
install: setup ## Build the release and install it below DESTDIR/PREFIX
	@$(call build,release)
	cmake --install build/release $(if $(PREFIX),--prefix $(PREFIX))

.PHONY: clean
clean: ## Remove all build folders
	@rm -rf build
