# For those whose fingers type make; ./dev does the work and lists what else there is.
.PHONY: all run stop test format lint

all:
	./dev build

run stop test format lint:
	./dev $@
