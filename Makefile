# A thin face over the presets of CMakePresets.json. JOBS=n limits the processes of a build.
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60

build = cmake --preset $(1) $(if $(V),,--log-level=WARNING) $(3) && cmake --build --preset $(1) -j $(JOBS) $(if $(2),--target $(2))

# Of the two compilers clang takes half the time to build with sanitizers; it may have come without what they need to run.
clang_sanitizes = $(shell echo 'int main() {}' | clang++ -fsanitize=address,undefined -x c++ - -o /dev/null 2>/dev/null && echo yes)
sanitizing_compiler = $(if $(clang_sanitizes),-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++)

libfuzzer = build/fuzz/fuzz/fuzz_$(1) -max_total_time=$(FUZZ_SECONDS) -timeout=10 -verbosity=0 -print_final_stats=1 \
    -artifact_prefix=build/fuzz/ build/fuzz/corpus/$(1) build/fuzz/fuzz/seeds/$(1)

.PHONY: help demo test bench fuzz sanitize install clean
.DEFAULT_GOAL := help

help:
	@echo "make demo       build the k8 tool and draw the samples, without a display, into out/demo"
	@echo "make test       build everything and run all tests"
	@echo "make bench      run the benchmarks"
	@echo "make fuzz       run each fuzzer for FUZZ_SECONDS (default 60)"
	@echo "make sanitize   run all tests under the address and undefined-behaviour sanitizers"
	@echo "make install    install the library, its header and the k8 program under PREFIX (default /usr/local)"
	@echo "make clean      remove build/ and out/"
	@echo
	@echo "All but help and clean first install the Debian packages that are missing."

.PHONY: dependencies
dependencies:
	@cmake/install_dependencies.sh

k8_render := build/release/tools/k8/k8 render
demo: dependencies
	@$(call build,release,k8_tool pointer)
	@$(k8_render) samples/penguin/content/penguin.k8 --action 0 -o out/demo/walk
	@$(k8_render) samples/penguin/content/penguin.k8 --action 1 -o out/demo/wave
	@$(k8_render) samples/penguin/content/penguin.k8 --action 2 -o out/demo/hop
	@$(k8_render) samples/floe/content/floe.k8 --yaw 8 --pitch 9 --distance 170 --target=0,38,-20 --opening 50 --background 0a1228 -o out/demo/floe
	@$(k8_render) samples/harbour/content/harbour.k8 --yaw 10 --pitch 12 --distance 70 --target=-3,9,-10 --opening 45 --background 42557a --step 4 -o out/demo/harbour
	@build/release/samples/pointer/pointer samples/floe/content/floe.k8 out/demo/pointer.png 478,160 450,300 418,285 215,270 320,340

test: dependencies
	@$(call build,test)
	@ctest --preset test

sanitize: dependencies
	@$(call build,sanitize,,$(sanitizing_compiler))
	@ctest --preset sanitize

bench: dependencies
	@$(call build,release,k8_bench)
	@build/release/bench/k8_bench

# libFuzzer comes with clang; without it the programs drive themselves by plain mutation.
fuzz: dependencies
ifneq ($(shell command -v clang++),)
	@$(call build,fuzz,fuzz_load fuzz_draw)
	@mkdir -p build/fuzz/corpus/load build/fuzz/corpus/draw
	@$(call libfuzzer,load) samples/*/content
	@$(call libfuzzer,draw)
else
	@$(call build,sanitize,fuzz_load fuzz_draw)
	@cd build/sanitize && fuzz/fuzz_load -max_total_time=$(FUZZ_SECONDS) fuzz/seeds/load ../../samples/*/content
	@cd build/sanitize && fuzz/fuzz_draw -max_total_time=$(FUZZ_SECONDS) fuzz/seeds/draw
endif

install: dependencies
	@$(call build,release,k8 k8_static k8_tool,-DCMAKE_INSTALL_PREFIX=$(or $(PREFIX),/usr/local))
	@cmake --install build/release

clean:
	@rm -rf build out
