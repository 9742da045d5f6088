// Adds an event to the log and prints the newest ones: note_event 16 "door open"
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <veltrancord/client.hpp>

int main(int argument_count, char** arguments) {
    if (argument_count != 3) {
        std::fprintf(stderr, "usage: %s TYPE TEXT\n", arguments[0]);
        return 2;
    }
    try {
        veltrancord::client service;
        service.log_add(std::atoi(arguments[1]), arguments[2]);
        for (const veltrancord_log_record& one : service.log_read(5)) {
            std::printf("%d-%02d-%02d %d %s\n", one.year, one.month, one.day, one.type, one.text);
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    return 0;
}
