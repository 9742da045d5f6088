// The load generator: sends the same request again and again, each on a connection of its own,
// checks every reply, and prints what that cost the server and how long it took, as one line of
// JSON.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "exchange.h"
#include "whole_file.h"

namespace {

using veltrancord::bench::exchange;
using veltrancord::bench::frame_request;
using veltrancord::bench::protocol;
using veltrancord::bench::read_whole;
using veltrancord::bench::reply_buffer;

struct settings {
    std::string socket_path;
    std::string request_file;
    std::string expected_file;
    protocol kind = protocol::veltrancord;
    uint32_t requests = 1000;
    uint32_t clients = 1;
    int server = 0;
    bool raw = false;
    bool learn = false;
};

int64_t clock_nanoseconds(clockid_t clock) {
    timespec now{};
    if (::clock_gettime(clock, &now) != 0) {
        return 0;
    }
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// Processor time that the server process has used, all threads together.
int64_t processor_time(int pid) {
    clockid_t clock{};
    return pid > 0 && ::clock_getcpuclockid(pid, &clock) == 0 ? clock_nanoseconds(clock) : 0;
}

// Page faults without I/O that the process has had.
uint64_t page_faults(int pid) {
    const std::string text = read_whole("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t name_end = text.rfind(')');
    if (name_end == std::string::npos) {
        return 0;
    }
    // Behind the name: state, six numbers, flags, then the faults.
    constexpr int fields_before = 7;
    std::size_t at = name_end + 2;
    for (int field = 0; field < fields_before && at != std::string::npos; ++field) {
        at = text.find(' ', at);
        at = at == std::string::npos ? at : at + 1;
    }
    return at == std::string::npos ? 0 : std::stoull(text.substr(at));
}

struct client_run {
    std::vector<int64_t> latencies;  // nanoseconds
    uint32_t wrong = 0;
    uint32_t failed = 0;
};

void run_client(const settings& options, const std::string& request, const std::string& expected,
                std::atomic<uint32_t>& left, client_run& run) {
    reply_buffer reply;
    for (;;) {
        uint32_t remaining = left.load();
        while (remaining > 0 && !left.compare_exchange_weak(remaining, remaining - 1)) {
        }
        if (remaining == 0) {
            return;
        }
        const int64_t start = clock_nanoseconds(CLOCK_MONOTONIC);
        if (!exchange(options.socket_path, request, options.kind, expected.size(), reply)) {
            ++run.failed;
            continue;
        }
        run.latencies.push_back(clock_nanoseconds(CLOCK_MONOTONIC) - start);
        run.wrong += reply.view() == expected ? 0U : 1U;
    }
}

int64_t percentile(const std::vector<int64_t>& sorted, std::size_t percent) {
    return sorted.empty() ? 0 : sorted[std::min(sorted.size() - 1, sorted.size() * percent / 100)];
}

int run(const settings& options) {
    const std::string payload = read_whole(options.request_file);
    const std::string request = options.raw ? payload : frame_request(payload);
    std::string expected;
    if (options.learn) {
        reply_buffer first;
        if (!exchange(options.socket_path, request, options.kind, 0, first)) {
            std::fprintf(stderr, "first request: %s\n", std::strerror(errno));
            return 1;
        }
        expected = first.view();
    } else {
        expected = read_whole(options.expected_file);
    }
    std::vector<client_run> runs(options.clients);
    std::atomic<uint32_t> left{options.requests};
    const int64_t processor_start = processor_time(options.server);
    const uint64_t faults_start = page_faults(options.server);
    const int64_t start = clock_nanoseconds(CLOCK_MONOTONIC);
    {
        std::vector<std::jthread> threads;
        for (client_run& one : runs) {
            threads.emplace_back([&] { run_client(options, request, expected, left, one); });
        }
    }
    const int64_t wall = clock_nanoseconds(CLOCK_MONOTONIC) - start;
    const int64_t processor = processor_time(options.server) - processor_start;
    const uint64_t faults = page_faults(options.server) - faults_start;

    std::vector<int64_t> latencies;
    uint32_t wrong = 0;
    uint32_t failed = 0;
    for (const client_run& one : runs) {
        latencies.insert(latencies.end(), one.latencies.begin(), one.latencies.end());
        wrong += one.wrong;
        failed += one.failed;
    }
    std::sort(latencies.begin(), latencies.end());
    const auto count = static_cast<double>(options.requests);
    const nlohmann::json report = {
        {"requests", options.requests},
        {"clients", options.clients},
        {"processor_ns", static_cast<double>(processor) / count},
        {"page_faults", static_cast<double>(faults) / count},
        {"p50_ns", percentile(latencies, 50)},
        {"p99_ns", percentile(latencies, 99)},
        {"per_second", count * 1e9 / static_cast<double>(wall)},
        {"reply_bytes", expected.size()},
        {"wrong", wrong},
        {"failed", failed},
    };
    std::printf("%s\n", report.dump().c_str());
    return wrong + failed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    settings options;
    CLI::App app("Sends one request again and again, each on a connection of its own");
    const std::map<std::string, protocol> kinds{{"veltrancord", protocol::veltrancord},
                                                {"until-close", protocol::until_close},
                                                {"fixed", protocol::fixed_reply}};
    app.add_option("--socket", options.socket_path, "Path of the server's socket")->required();
    app.add_option("--request", options.request_file, "File that holds the request")->required();
    auto* expected =
        app.add_option("--expect", options.expected_file, "File that holds the expected reply");
    auto* learn = app.add_flag("--learn", options.learn, "Expect what the first reply was");
    expected->excludes(learn);
    app.add_option("--protocol", options.kind, "How a reply ends")
        ->transform(CLI::CheckedTransformer(kinds));
    app.add_option("--requests", options.requests, "How many requests")
        ->check(CLI::Range(1U, 10'000'000U));
    app.add_option("--clients", options.clients, "How many clients at once")
        ->check(CLI::Range(1U, 256U));
    app.add_option("--server", options.server, "Process whose cost is counted");
    app.add_flag("--raw", options.raw, "Send the request as it stands, without the frame");
    CLI11_PARSE(app, argc, argv);
    return run(options);
}
