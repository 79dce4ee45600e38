# A thin front over the CMake presets. What a target needs is made by it.
.DEFAULT_GOAL := help
MAKEFLAGS += --no-print-directory
.PHONY: help deps build image test demo shell asan tsan fuzz mutate soak lint bench bench-peers install package \
	package-test clean

IMAGE := build/dev/image

help: ## show this list
	@sed -n 's/^\([a-z -]*\):.*## \(.*\)/make \1\t\2/p' $(MAKEFILE_LIST) | expand -t 18

deps: ## install the Debian packages that are missing
	@tools/deps g++ cmake ninja-build libgtest-dev libgmock-dev libcli11-dev nlohmann-json3-dev binutils \
		util-linux mount iproute2 dnsmasq-base bind9-dnsutils python3 pkg-config tzdata

# $(1) is a preset, $(2) the targets, empty for all. Configures once; the build itself notices later changes.
define buildPreset
	@[ -e build/$(1)/build.ninja ] || cmake --preset $(1)
	@cmake --build --preset $(1) $(if $(2),--target $(2))
endef

build: deps ## build everything (preset dev)
	$(call buildPreset,dev)

image: deps ## install into the folder that becomes an appliance's /vemra
	$(call buildPreset,dev,ostrelServer ostrelPluginProbe ostrelPluginBench ostrelCtl ostrelClient ostrelDbTool plugins)
	@rm -rf $(IMAGE)
	@cmake --install build/dev --prefix $(IMAGE) >/dev/null

test: build ## run all tests
	@ctest --preset dev

demo: image ## watch the daemon at work, step by step
	@tools/appliance $(IMAGE) tools/demo

shell: image ## play inside a running appliance
	@tools/appliance $(IMAGE) tools/shell

asan tsan: deps ## build and test with sanitizers
	$(call buildPreset,$@)
	@ctest --preset $@

FUZZ_SECONDS ?= 60

fuzz: deps ## look for inputs that break parsers, link and store, FUZZ_SECONDS each
	@tools/deps clang libclang-rt-14-dev
	$(call buildPreset,fuzz)
	@tests/fuzz/run $(FUZZ_SECONDS)

mutate: deps ## look for single faults in FILES (default: what differs from main) that no test sees
	@tools/deps git
	@tests/mutate $(FILES)

MINUTES ?= 10

soak: image ## put the daemon under all that can go wrong at once, for MINUTES
	$(call buildPreset,dev,e2eTests)
	@OSTREL_SOAK_MINUTES=$(MINUTES) build/dev/bin/e2eTests --gtest_filter='Soak.*'

lint: build ## check format, code, and that public headers compile alone
	@tools/deps clang-format clang-tidy git
	$(call buildPreset,dev,all_verify_interface_header_sets)
	@git ls-files -z --cached --others --exclude-standard '*.c' '*.cpp' '*.h' '*.hpp' | \
		xargs -0 clang-format --dry-run -Werror
	@run-clang-tidy -quiet -p build/dev '^$(CURDIR)/(bench|db|plugins|source|tests)/' >build/lint.log 2>&1 || \
		{ grep -A3 -E '(error|warning):' build/lint.log || tail build/lint.log; exit 1; }

bench: deps ## measure
	$(call buildPreset,release)
	@cmake --install build/release --prefix build/release/image >/dev/null
	@tools/appliance build/release/image build/release/bin/ostrelBench

bench-peers: deps ## measure side by side with other stores, into docs/performance.md; MODE=quick only tries
	@tools/deps redis-tools libhiredis-dev libsqlite3-dev liblmdb-dev libdconf-dev dconf-service dbus-daemon \
		e2fsprogs
	@cmake --preset release >/dev/null
	$(call buildPreset,release)
	@cmake --install build/release --prefix build/release/image >/dev/null
	@bench/peers/run build/release $(MODE)

PREFIX ?= /vemra

install: deps ## build for use (preset release) and install below PREFIX, /vemra
	$(call buildPreset,release)
	@cmake --install build/release --prefix $(PREFIX)

package: deps ## build Debian packages into build/packages
	@tools/deps debhelper dh-python dpkg-dev fakeroot lintian
	@packaging/build build/packages

package-test: package ## try them on a fresh Debian that boots systemd, as root
	@tools/deps debootstrap
	@packaging/test build/packages

clean: ## remove all that was built
	rm -rf build
