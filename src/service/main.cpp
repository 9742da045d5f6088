#include "leaf/message.h"
#include "service/options.h"
#include "service/processes.h"

// Tells which version a program's file is, running or not, without starting it: what(1) and the
// tools look for the mark.
[[gnu::used]] static constexpr char version_mark[] = "@(#)Veltrancord " VELTRANCORD_VERSION;

int main(int argc, char** argv) {
    using namespace veltrancord;
    settle_inheritance();
    prepare_messages();
    service_options options;
    if (parse_options(argc, argv, options) == command_line::usage) {
        print_usage(argv[0]);
        return 0;
    }
    return run_service(options);
}
