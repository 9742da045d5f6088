// Adds an event to the log and prints the newest ones: note_event 16 "door open"
#include <veltrancord/client.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

int fail(const veltrancord_client& client) {
    std::array<char, 200> reason{};
    veltrancord_error_text(&client, reason.data(), reason.size());
    std::fprintf(stderr, "%s\n", reason.data());
    return 1;
}

}  // namespace

int main(int argument_count, char** arguments) {
    if (argument_count != 3) {
        std::fprintf(stderr, "usage: %s TYPE TEXT\n", arguments[0]);
        return 2;
    }
    veltrancord_client client = VELTRANCORD_CLIENT_INIT;

    veltrancord_log_record event{};
    event.type = std::atoi(arguments[1]);
    event.year = 2000;  // the date is the service's to set
    event.month = 1;
    const std::string_view text(arguments[2]);
    text.copy(event.text, sizeof event.text - 1);
    if (veltrancord_log_add(&client, &event) < 0) {
        return fail(client);
    }
    std::array<veltrancord_log_record, 5> newest{};
    const int count =
        veltrancord_log_read(&client, VELTRANCORD_LOG_NEWEST, -1, newest.data(), newest.size());
    if (count < 0) {
        return fail(client);
    }
    for (int index = 0; index < count; ++index) {
        const veltrancord_log_record& one = newest[static_cast<std::size_t>(index)];
        std::printf("%d-%02d-%02d %d %s\n", one.year, one.month, one.day, one.type, one.text);
    }
    return 0;
}
