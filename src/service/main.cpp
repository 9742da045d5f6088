#include "leaf/message.h"
#include "service/options.h"
#include "service/processes.h"

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
