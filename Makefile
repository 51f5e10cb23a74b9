ABIS := i386 x86_64
SANITIZED := i386-sanitized x86_64-sanitized
PACKAGES_READY := build/packages-ready

.PHONY: all test demo lint bench install clean

all: $(ABIS:%=build/%/built)

$(PACKAGES_READY): scripts/install-packages
	scripts/install-packages
	mkdir -p build && touch $@

.PHONY: FORCE
build/%/built: $(PACKAGES_READY) FORCE
	@test -f build/$*/build.ninja || cmake --preset $* >build/$*.configure.log || \
		{ cat build/$*.configure.log; exit 1; }
	cmake --build build/$*

# Every build is tested even when an earlier one fails; the last lines are ctest's own.
test: $(ABIS:%=build/%/built) $(SANITIZED:%=build/%/built)
	scripts/run-tests $(SANITIZED) $(ABIS)

demo: $(ABIS:%=build/%/built)
	tools/demo/run build/demo

lint: $(ABIS:%=build/%/built)
	scripts/lint build/x86_64

bench: $(ABIS:%=build/%/built)
	bench/run build/bench

# Faults that tests should notice: make mutants SAMPLE=300 SEED=1
.PHONY: mutants
mutants: $(PACKAGES_READY)
	scripts/mutants --sample $(or $(SAMPLE),20) $(addprefix --seed=,$(SEED))

install: $(ABIS:%=build/%/built)
	cmake --install build/i386
	cmake --install build/x86_64

clean:
	rm -rf build
