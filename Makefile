ABIS := i386 x86_64
PACKAGES_READY := build/packages-ready

.PHONY: all install clean

all: $(ABIS:%=build/%/built)

$(PACKAGES_READY): scripts/install-packages
	scripts/install-packages
	mkdir -p build && touch $@

.PHONY: FORCE
build/%/built: $(PACKAGES_READY) FORCE
	@test -f build/$*/build.ninja || cmake --preset $* >build/$*.configure.log || \
		{ cat build/$*.configure.log; exit 1; }
	cmake --build build/$*

install: $(ABIS:%=build/%/built)
	cmake --install build/i386
	cmake --install build/x86_64

clean:
	rm -rf build
