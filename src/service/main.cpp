#include <cstdio>

#include "service/inheritance.h"
#include "service/options.h"
#include "service/processes.h"

int main(int argc, char** argv) {
    using namespace veltrancord;
    settle_inheritance();
    // Nothing printed may be lost at the end of a process, or be printed by a forked one again.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    service_options options;
    if (parse_options(argc, argv, options) == command_line::usage) {
        print_usage(argv[0]);
        return 0;
    }
    return run_service(options);
}
