# Entry points for a fresh Debian 12 machine (run as root):
#   make test            install what is missing, configure, build, run the whole suite
#   make test-sanitize   the same suite in a second build under ASan and UBSan
#   make test-unit       only the suites that need neither root nor the sandbox (label "unit")
#   make test-vendor     the library linked against a stand-in vendor platform library, with the
#                        platform suite
#   make test-fuzz       every libFuzzer target for FUZZ_SECONDS (default 20) over its seed
#                        corpus, in a clang build with ASan and UBSan (CI)
#   make fuzz            the same for FUZZ_SECONDS=600 each
#   make bench           the benchmarks, in the sandbox
#   make demo            zql-policy on the simulated system in the sandbox: the modules, an
#                        export, the drift from examples/hardening.json and a dry run of it
# The suite runs inside the system sandbox; afterwards the machine's real /etc is compared
# with its state before the run, and any difference fails the run.

BUILD_DIR ?= build
SANITIZE_DIR ?= build-sanitize
VENDOR_DIR ?= build-vendor
FUZZ_DIR ?= build-fuzz
FUZZ_SECONDS ?= 20
JOBS ?= $(shell nproc)
# Warnings as errors: CI turns this on (.ci/run); a plain build keeps them warnings.
ZQL_WERROR ?= OFF

# The PAM rig (tests/pam) needs libpam's headers, pam_pwquality with cracklib's dictionary
# (a recommendation that --no-install-recommends would drop; without it pwquality refuses every
# password) and the account tools. Installing libpam-pwquality runs pam-auth-update on the
# machine: pam_pwquality joins its common-password.
# patch and git check that the dry-run diff applies (tests/tools); python3-jsonschema reads the
# JSON Schema of "zql-policy schema" as an editor does.
# GLib reads and writes desktop entries (platform/reference); desktop-file-validate checks the
# entries the kiosk module writes (tests/kiosk). python3 sets and removes extended attributes
# for the simulated kdxl-file (sim/layer).
DEBIAN_PACKAGES = binutils clang-format cmake g++ make ninja-build pkg-config qtbase5-dev qttools5-dev \
                  qttools5-dev-tools tar util-linux libbenchmark-dev nlohmann-json3-dev diffutils \
                  libpam0g-dev libpam-pwquality cracklib-runtime libcrypt-dev passwd clang-tidy \
                  patch git python3-jsonschema clang libclang-rt-14-dev libglib2.0-dev \
                  desktop-file-utils python3

.PHONY: all deps build build-sanitize test test-sanitize test-unit test-vendor test-fuzz fuzz \
        bench demo clean

all: build

deps:
	@missing=""; \
	for package in $(DEBIAN_PACKAGES); do \
	    dpkg-query -W -f='$${Status}' $$package 2>/dev/null | grep -q 'install ok installed' \
	        || missing="$$missing $$package"; \
	done; \
	if [ -n "$$missing" ]; then \
	    echo "Installing:$$missing"; \
	    apt-get update -qq && DEBIAN_FRONTEND=noninteractive \
	        apt-get install -y -qq --no-install-recommends $$missing; \
	fi

build: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZQL_WERROR=$(ZQL_WERROR)
	cmake --build $(BUILD_DIR) -j $(JOBS)

build-sanitize: deps
	cmake -S . -B $(SANITIZE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZQL_SANITIZE=ON \
	    -DZQL_WERROR=$(ZQL_WERROR) -DZQL_TIDY_TESTS=OFF
	cmake --build $(SANITIZE_DIR) -j $(JOBS)

test: build
	@sh tests/run-suite.sh $(BUILD_DIR) $(JOBS)

test-sanitize: build-sanitize
	@sh tests/run-suite.sh $(SANITIZE_DIR) $(JOBS)

test-unit: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS) -L unit

# The vendor seam: a stand-in vendor library built from the reference sources, the library
# configured with ZQL_VENDOR_PLATFORM=ON against it, and the platform suite.
test-vendor: deps
	cmake -S tests/platform/vendor-standin -B $(VENDOR_DIR)/standin -G Ninja
	cmake --build $(VENDOR_DIR)/standin -j $(JOBS)
	cmake -S . -B $(VENDOR_DIR)/library -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DZQL_WERROR=$(ZQL_WERROR) -DZQL_TIDY_TESTS=OFF -DZQL_BUILD_BENCHMARKS=OFF \
	    -DZQL_VENDOR_PLATFORM=ON -DZQL_PLATFORM_REFERENCE_TESTS=ON \
	    -DZQL_VENDOR_LIBRARIES=$(abspath $(VENDOR_DIR))/standin/libvela-platform-standin.so
	cmake --build $(VENDOR_DIR)/library -j $(JOBS) --target zql-modules zql-sandbox modetest \
	    auditdbtest eventlogtest velauidesktopentrytest macdbtest systemdservicetest kdxtest
	@sh tests/run-suite.sh $(VENDOR_DIR)/library $(JOBS) -L platform

# The fuzzers: a clang build of the library and zql-policy's core with libFuzzer, ASan and UBSan.
# Each target starts from its seed corpus (fuzz/corpus/<target>) and runs FUZZ_SECONDS; what it
# finds beyond the seeds stays in the build tree. A crash, a hang past 10 s or a sanitizer
# report fails the run, and the input that did it is left in $(FUZZ_DIR)/findings.
test-fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DZQL_FUZZ=ON -DZQL_WERROR=$(ZQL_WERROR) -DZQL_BUILD_TESTS=OFF \
	    -DZQL_BUILD_BENCHMARKS=OFF -DZQL_TIDY_TESTS=OFF
	cmake --build $(FUZZ_DIR) -j $(JOBS) --target fuzzers
	@sh fuzz/run-fuzzers.sh $(FUZZ_DIR) $(FUZZ_SECONDS)

fuzz:
	$(MAKE) test-fuzz FUZZ_SECONDS=600

# Benchmarks run in the sandbox like the tests; see docs/performance.md for the figures.
bench: build
	$(BUILD_DIR)/sandbox/zql-sandbox --share $(CURDIR) --share $(abspath $(BUILD_DIR)) \
	    --layer $(CURDIR)/sim/layer -- \
	    $(abspath $(BUILD_DIR))/benchmarks/zql-benchmarks
	sh benchmarks/zql-policy-timing.sh $(BUILD_DIR)

demo: build
	@sh examples/demo.sh $(BUILD_DIR)

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR) $(VENDOR_DIR)
