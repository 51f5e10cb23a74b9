# Every target fetches the packages it needs (as root or with sudo) and sets its builds up.
ABIS := i386 x86_64
SANITIZED := i386-sanitized x86_64-sanitized
# Rooms whose tests wait for nothing.
PURE_ROOMS := $(foreach room,base wire timebase autosar ptp,$(patsubst tests/%/CMakeLists.txt,%,\
	$(wildcard tests/$(room)/CMakeLists.txt)))

.DEFAULT_GOAL := all
.PHONY: FORCE all help check test demo simulate profile-report lint bench mutants install uninstall \
	deb try clean

all: $(ABIS:%=build/%/built) ## library, host program and virtual card for both ABIs (the default)

help: ## this list
	@sed -nE 's/^([a-z-]+):.*## (.*)/make \1\t\2/p' $(MAKEFILE_LIST) | expand -t 20

check: build/x86_64/testable ## the fast loop: x86-64 only, the tests that wait for nothing
	@cmake --build build/x86_64 --target $(PURE_ROOMS:%=tests/%/all)
	@scripts/run-tests --rooms "$(PURE_ROOMS)" x86_64

# Every build is tested even when an earlier one fails; the last lines name what failed.
test: $(SANITIZED:%=build/%/tests-built) $(ABIS:%=build/%/tests-built) ## every test, both ABIs, plain and with sanitizers
	scripts/run-tests $(SANITIZED) $(ABIS)

demo: build/packages/demo $(ABIS:%=build/%/configured) ## a master and a slave on virtual cards; writes build/demo/report.json
	cmake --build build/i386 --target tsyn libvirtual_i210.so
	cmake --build build/x86_64 --target tsyn
	tools/demo/run build/demo

# The day first, so that nothing waits for it in the end.
simulate: build/packages/demo build/packages/test $(ABIS:%=build/%/configured) ## scenarios/ in simulated time; SEEDS=1..20
	cmake --build build/i386 --target tsyn libvirtual_i210.so
	cmake --build build/x86_64 --target tsyn libvirtual_i210.so simulate flood
	build/x86_64/simulate scenarios/day.toml $(filter-out scenarios/day.toml,$(wildcard scenarios/*.toml)) \
		$(addprefix --seeds ,$(SEEDS))

profile-report: build/packages/demo build/packages/test $(ABIS:%=build/%/built) ## measures both profiles anew, for doc/profile.md
	bench/pair build/profile-report
	scripts/profile-report build/x86_64/simulate build/profile-report

lint: build/lint/configured ## format and static analysis; a repeated run looks at what changed
	scripts/lint build/lint $(if $(LINT_SINCE),--since $(LINT_SINCE))

bench: build/packages/build build/packages/bench ## what reading the time and handling a message cost
	bench/run build/bench

mutants: build/packages/build build/packages/test ## deliberate faults that tests should notice: SAMPLE=300 SEED=1
	scripts/mutants --sample $(or $(SAMPLE),20) $(addprefix --seed=,$(SEED))

install: $(ABIS:%=build/%/installable) ## both libraries and all tools; DESTDIR= and prefix= (/usr/local) are heeded
	for component in library development card; do \
		cmake --install build/i386 $(prefix:%=--prefix "%") --component $$component || exit 1; \
	done
	cmake --install build/x86_64 $(prefix:%=--prefix "%")

uninstall: ## removes what make install put below the same DESTDIR=
	@scripts/uninstall $(foreach abi,$(ABIS),$(wildcard build/$(abi)/install_manifest*.txt))

deb: $(foreach set,build deb,build/packages/$(set)) ## Debian packages for amd64 and i386 in build/deb, judged by lintian
	scripts/make-deb

try: deb build/packages/try ## installs those on a copy of this system, with a pair and the service; as root
	scripts/try-packages

clean: ## removes build/
	rm -rf build

build/packages/%: scripts/install-packages
	scripts/install-packages $*
	@mkdir -p $(@D) && touch $@

# A folder configured with tests serves everything; without, it does with fewer packages.
build/%/configured: build/packages/build FORCE
	@test -f build/$*/build.ninja || scripts/configure $* -DZEB_TESTS=OFF

build/%/testable: build/packages/build build/packages/test FORCE
	@test -f build/$*/build.ninja && grep -qx ZEB_TESTS:BOOL=ON build/$*/CMakeCache.txt || \
		scripts/configure $* -DZEB_TESTS=ON

build/%/built: build/%/configured FORCE
	cmake --build build/$* --target ZebEthTimeSynDaemon tools/all

build/%/installable: build/%/configured
	cmake --build build/$* --target tools/tsyn/all tools/virtual_i210/all packaging/all

build/%/tests-built: build/%/testable FORCE
	cmake --build build/$*

# Only analysed, never built, and source by source; clang cannot read precompiled headers of gcc.
build/lint/configured: $(foreach set,build test bench lint,build/packages/$(set)) FORCE
	@test -f build/lint/build.ninja || scripts/configure x86_64 -B build/lint -DZEB_TESTS=ON \
		-DZEB_BENCH=ON -DZEB_TOGETHER=OFF -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON
	@cmake --build build/lint --target build.ninja >/dev/null
