# The two commands a newcomer needs, and a few more. The work is done by scripts/.
.PHONY: demo stop test bench build fuzz

# Installs what is missing, builds, starts a demo gateway with simulated devices and tours it.
demo:
	bash scripts/demo.sh

# Stops everything the demo started.
stop:
	bash scripts/demo.sh stop

# Unit, integration and end-to-end tests, plain and under sanitizers (what CI runs).
test:
	bash scripts/test.sh

# Coverage-guided fuzzing of every parser of network and host input: FUZZ_SECONDS per target.
FUZZ_SECONDS ?= 60
fuzz:
	bash scripts/fuzz.sh $(FUZZ_SECONDS)

# Benchmarks of the hot paths against their references.
bench:
	bash scripts/bench.sh

build:
	bash scripts/install-deps.sh
	cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build build -j
